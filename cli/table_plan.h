// Planning a table read: the selection as lines of the width RFC_READ_TABLE
// takes, and the wanted fields in groups that fit its data line.
#pragma once

#include <string>
#include <vector>

namespace veltrane::cli {

inline constexpr size_t kOptionLineLength = 72;
inline constexpr int kDataLineLength = 512;

// Joins several conditions with AND (each in parentheses when there are
// more than one) and breaks the text into lines of at most `width`
// characters at blanks outside quoted literals. A word longer than a line
// stands on a line of its own.
std::vector<std::string> selectionLines(const std::vector<std::string>& conditions, size_t width = kOptionLineLength);

struct FieldLayout {
  std::string name;
  int length = 0;
  std::string type;
};

// Splits the fields, in order, into groups whose data fits one line: each
// field takes its length plus one for the delimiter. A field wider than a
// line forms a group of its own. Returns indexes into `fields`.
std::vector<std::vector<size_t>> splitFields(const std::vector<FieldLayout>& fields, int lineLength = kDataLineLength);

// "A,B , C" and repeated options into upper-case names; empty entries
// dropped. A name given twice is a UsageError.
std::vector<std::string> fieldList(const std::vector<std::string>& options);

// A UsageError naming the first field that does not fit a data line on its
// own (its length plus the delimiter), which the system would refuse.
void requireFittingFields(const std::vector<FieldLayout>& fields, int lineLength = kDataLineLength);

}  // namespace veltrane::cli
