#include "table_plan.h"

#include <algorithm>

#include "failure.h"
#include "text.h"

namespace veltrane::cli {

namespace {

// Words of a condition: blanks separate them except inside '...' or `...`
// (a doubled quote stands for itself).
std::vector<std::string> words(const std::string& text) {
  std::vector<std::string> out;
  std::string current;
  char quote = 0;
  for (size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (quote) {
      current += c;
      if (c == quote) {
        if (i + 1 < text.size() && text[i + 1] == quote) {
          current += text[++i];
        } else {
          quote = 0;
        }
      }
    } else if (c == ' ' || c == '\t' || c == '\n' || c == '\r') {
      if (!current.empty()) out.push_back(std::move(current));
      current.clear();
    } else {
      if (c == '\'' || c == '`') quote = c;
      current += c;
    }
  }
  if (!current.empty()) out.push_back(std::move(current));
  return out;
}

}  // namespace

std::vector<std::string> selectionLines(const std::vector<std::string>& conditions, size_t width) {
  std::vector<std::string> all;
  std::vector<std::string> parts;
  for (const auto& c : conditions)
    if (!trim(c).empty()) parts.push_back(trim(c));
  for (size_t i = 0; i < parts.size(); ++i) {
    if (i > 0) all.push_back("AND");
    if (parts.size() > 1) all.push_back("(");
    for (auto& w : words(parts[i])) all.push_back(std::move(w));
    if (parts.size() > 1) all.push_back(")");
  }
  std::vector<std::string> lines;
  std::string line;
  for (const auto& w : all) {
    if (!line.empty() && line.size() + 1 + w.size() > width) {
      lines.push_back(std::move(line));
      line.clear();
    }
    if (!line.empty()) line += ' ';
    line += w;
  }
  if (!line.empty()) lines.push_back(std::move(line));
  return lines;
}

std::vector<std::vector<size_t>> splitFields(const std::vector<FieldLayout>& fields, int lineLength) {
  std::vector<std::vector<size_t>> groups;
  std::vector<size_t> group;
  long used = 0;
  for (size_t i = 0; i < fields.size(); ++i) {
    const long cost = static_cast<long>(fields[i].length) + 1;
    if (!group.empty() && used + cost > lineLength) {
      groups.push_back(std::move(group));
      group.clear();
      used = 0;
    }
    group.push_back(i);
    used += cost;
  }
  if (!group.empty()) groups.push_back(std::move(group));
  return groups;
}

std::vector<std::string> fieldList(const std::vector<std::string>& options) {
  std::vector<std::string> names;
  for (const auto& option : options) {
    size_t start = 0;
    while (start <= option.size()) {
      size_t comma = option.find(',', start);
      if (comma == std::string::npos) comma = option.size();
      std::string name = upperAscii(trim(option.substr(start, comma - start)));
      if (std::find(names.begin(), names.end(), name) != names.end())
        throw UsageError("option --fields: " + name + " is given more than once");
      if (!name.empty()) names.push_back(std::move(name));
      start = comma + 1;
    }
  }
  return names;
}

void requireFittingFields(const std::vector<FieldLayout>& fields, int lineLength) {
  for (const auto& f : fields)
    if (f.length + 1 > lineLength)
      throw UsageError("field " + f.name + " is " + std::to_string(f.length) + " characters wide: wider than the " +
                       std::to_string(lineLength) + "-character data line of RFC_READ_TABLE, which cannot read it");
}

}  // namespace veltrane::cli
