// The object itself: constructor, destructor, settings, size.

#include "utils/utils.h"

UTILS::UTILS(int header, const char* inputFile, const char* outputFile, int referenceColumn,
             int estimateColumn)
    : headerFlag(header),
      nameInputFile(inputFile),
      nameOutputFile(outputFile),
      col1(referenceColumn),
      col2(estimateColumn) {}

UTILS::~UTILS() = default;

void UTILS::clearData() {
  id.clear();
  zspec.clear();
  zphot.clear();
  output.clear();
  delta.clear();
  deltaNorm.clear();
}

int UTILS::getDataSize() const { return static_cast<int>(id.size()); }

void UTILS::setNameInputFile(const char* name) { nameInternalFile = name; }
void UTILS::setNameOutputFile(const char* name) { nameOutputFile = name; }
