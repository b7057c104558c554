#!/bin/bash
# peer_gnuastro.sh TABLE COL1 COL2: the 22 statistics with gnuastro's asttable.
#
# One column-arithmetic program leaves all values of a residual on the stack, so
# that one asttable run a residual does everything.  Tried: aststatistics for the
# single values (reads and sorts again for each of |d| and |d - median|: slower);
# one asttable a residual on the text itself (the text is parsed twice); text to
# FITS first, by one asttable; this one: text to FITS by one asttable a core, each
# with its share of the lines, then the two residuals at once from those FITS
# files.  (The last two take the same processor time within a twentieth; the share
# a core was kept since its reading can run on all cores, but it was timed only on
# busy ones, where it gained nothing.)  Cutting the columns out before (cut -d,)
# gained nothing, and asttable --sort before the medians cost more than it saved.
set -eu
table=$1 col1=$2 col2=$3
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

split -e -n "l/$(nproc)" "$table" "$work/part."
jobs=()
for part in "$work"/part.*; do
  asttable "$part" --column="$col1,$col2" --output="$work/columns.${part##*.}.fits" &
  jobs+=($!)
done
for job in "${jobs[@]}"; do wait "$job"; done

inputs=()
for columns in "$work"/columns.*.fits; do
  if [ ${#inputs[@]} -eq 0 ]; then inputs=("$columns"); else inputs+=(--catrowfile="$columns" --catrowhdu=1); fi
done

program='d meanvalue  d stdvalue set-s s  d abs set-a'
program+=' a medianvalue  d d medianvalue - abs medianvalue'
program+=' a 0.15 gt meanvalue 100 x  a s gt meanvalue 100 x'
for k in 2 3 4; do program+=" a s $k x gt meanvalue 100 x"; done

# residual EXPRESSION FILE: bias, sigma, mad, madDelta and the five percentages.
residual() {
  asttable "${inputs[@]}" --txtf64format=exp --txtf64precision=9 \
    --column="arith $1 set-d $program" > "$2"
}
# The columns $1 and $2 are those of asttable.
# shellcheck disable=SC2016
residual '$1 $2 -' "$work/delta" & job=$!
# shellcheck disable=SC2016
residual '$1 $2 - $1 1 + /' "$work/norm"
wait "$job"

awk '{ rms = sqrt($1 * $1 + $2 * $2)
  printf "%.6g\n%.6g\n%.6g\n%.6g\n%.6g\n%.6g\n%.6g\n%.6g\n%.6g\n%.6g\n%.6g\n",
         $1, $2, rms, $3, 1.4826 * $3, $4, $5, $6, $7, $8, $9 }' "$work/delta" "$work/norm"
