// The four files, read with std::getline and written with operator<<.

#include <cstdlib>
#include <fstream>
#include <iostream>
#include <limits>
#include <sstream>

#include "plain_utils.h"

namespace plain {

double read_double(const std::string& text) { return std::atof(text.c_str()); }

int read_int(const std::string& text) { return std::atoi(text.c_str()); }

std::string write_double(double value) {
  std::ostringstream out;
  out << value;
  return out.str();
}

int next_row(int row) {
  if (row == std::numeric_limits<int>::max()) {
    return std::numeric_limits<int>::min();
  }
  return row + 1;
}

namespace {

void log_line(const std::string& text) {
  std::ofstream log("error.log", std::ios::app);
  log << text << std::endl;
  log.close();
}

// A failed search gives npos, and npos + 1 is 0: the next search begins at the start of the line.
// substr takes a length that is too long as "to the end of the line". substr(npos, ...) throws
// std::out_of_range.
double field_value(const std::string& line, std::size_t position, std::size_t end) {
  const std::string text = line.substr(position, end - position);
  return read_double(text);
}

}  // namespace

int UTILS::loadInputFile() {
  std::ifstream table;
  table.open(nameInputFile);
  if (!table.is_open()) {
    const std::string message = std::string("*** file ") + nameInputFile + " not found! ***";
    std::cout << message << std::endl;
    log_line(message);
    return -1;
  }

  if (headerFlag == 1) {
    std::string header;
    std::getline(table, header);
    std::cout << std::endl;
    std::cout << "header = " << header << std::endl;
  }

  std::string first_line;
  std::getline(table, first_line);
  int column_count = 1;
  for (const char c : first_line) {
    if (c == ',') {
      column_count = column_count + 1;
    }
  }
  table.close();
  std::cout << "col number " << column_count << std::endl;

  if (col1 > column_count || col2 > column_count) {
    const std::string message =
        "column index exceeds maximum number of columns in the input file. Program aborted";
    std::cout << message << std::endl;
    log_line(message);
    return -10;
  }
  if (col1 < 1 || col1 >= col2) {
    const std::string message =
        "first column index must be at least 1 and less than second column index. Program aborted";
    std::cout << message << std::endl;
    log_line(message);
    return -20;
  }

  std::cout << std::endl;
  std::cout << "Load data from file: " << nameInputFile << std::endl;
  std::cout << std::endl;

  table.clear();
  table.open(nameInputFile);
  std::ofstream internal;
  internal.open(nameInternalFile);

  int row = 0;
  std::string line;
  while (std::getline(table, line)) {
    if (line.length() == 0) {
      break;
    }
    // A row is written whole. If a field throws, nothing of the row reaches the file.
    std::ostringstream text;
    text << row << " ";
    std::size_t position = 0;
    for (int k = 1; k <= column_count; k++) {
      position = line.find_first_not_of(',', position);
      const std::size_t comma = line.find(',', position);
      if (k == col1) {
        text << field_value(line, position, comma) << " ";
      } else if (k == col2) {
        text << field_value(line, position, comma);
      }
      position = comma + 1;
    }
    internal << text.str() << std::endl;
    row = next_row(row);
  }
  table.close();
  internal.close();

  log_line("File created succesfully");
  return 0;
}

int UTILS::loadInternalFile() {
  std::ifstream file;
  file.open(nameInternalFile);
  if (!file.is_open()) {
    std::cout << "*** file " << nameInternalFile << " not found! ***" << std::endl;
    return -1;
  }
  std::cout << std::endl;
  std::cout << "Load data from file: " << nameInternalFile << std::endl;
  std::cout << std::endl;

  std::string line;
  while (std::getline(file, line)) {
    if (line.length() == 0) {
      break;
    }
    std::size_t position = line.find_first_not_of(' ', 0);
    std::size_t end = line.find(' ', position);
    id.push_back(read_int(line.substr(position, end - position)));

    position = end + 1;
    position = line.find_first_not_of(' ', position);
    end = line.find(' ', position);
    zspec.push_back(field_value(line, position, end));

    position = end + 1;
    zphot.push_back(read_double(line.substr(position, line.length() + 1 - position)));
  }
  file.close();
  return 0;
}

void UTILS::storeStatistics() const {
  std::ofstream file;
  file.open(nameOutputFile);
  file << "Data size  = " << id.size() << std::endl;
  file << std::endl;
  file << "Statistics on delta [col" << col1 << " - col" << col2 << "]:" << std::endl;
  file << "bias             = " << bias << std::endl;
  file << "sigma            = " << sigma << std::endl;
  file << "RMS              = " << rms << std::endl;
  file << "MAD              = " << mad << std::endl;
  file << "NMAD             = " << nmad << std::endl;
  file << "MAD(Delta)       = " << madDeltaz << std::endl;
  file << "outliers >0.15   = " << outliersConstant << "%" << std::endl;
  file << "outliers >1sigma = " << outliers1 << "%" << std::endl;
  file << "outliers >2sigma = " << outliers2 << "%" << std::endl;
  file << "outliers >3sigma = " << outliers3 << "%" << std::endl;
  file << "outliers >4sigma = " << outliers4 << "%" << std::endl;
  file << std::endl;
  file << "Statistics on normalized delta [(col" << col1 << " - col" << col2 << ") / (1 + col"
       << col1 << ")]:" << std::endl;
  file << "bias norm             = " << biasNorm << std::endl;
  file << "sigma norm            = " << sigmaNorm << std::endl;
  file << "RMS norm              = " << rmsNorm << std::endl;
  file << "MAD norm              = " << madNorm << std::endl;
  file << "NMAD norm             = " << nmadNorm << std::endl;
  file << "MAD(Delta norm)       = " << madDeltazNorm << std::endl;
  file << "outliers norm >0.15   = " << outliersConstantNorm << "%" << std::endl;
  file << "outliers norm >1sigma = " << outliers1Norm << "%" << std::endl;
  file << "outliers norm >2sigma = " << outliers2Norm << "%" << std::endl;
  file << "outliers norm >3sigma = " << outliers3Norm << "%" << std::endl;
  file << "outliers norm >4sigma = " << outliers4Norm << "%" << std::endl;
  file.close();

  std::cout << std::endl;
  std::cout << "Statistics stored in the file " << nameOutputFile << std::endl;
  std::cout << std::endl;
}

}  // namespace plain
