// What the command reads from files and standard input, on arbitrary text:
// a destinations file and a line of a batch are taken or refused with a
// usage error, and never fail otherwise. A destination's entries are
// connection options and hold no password. A line of the library's trace
// gives an ABAP message or none, and never fails. A selection broken into
// lines breaks the same way again once its lines are joined, as long as
// its literals are closed.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "batch_line.h"
#include "destinations.h"
#include "failure.h"
#include "table_plan.h"
#include "text.h"

namespace {

void Fail(const char* what, const std::string& text) {
  std::fprintf(stderr, "%s: %s\n", what, text.c_str());
  std::abort();
}

// Whether every literal in '...' or `...` of the text is closed.
bool LiteralsClosed(const std::string& text) {
  char quote = 0;
  for (const char c : text)
    if (quote ? c == quote : c == '\'' || c == '`') quote = quote ? 0 : c;
  return quote == 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  using namespace veltrane::cli;
  try {
    for (const auto& [key, value] : destinationEntries(text, "sim", "fuzz.ini")) {
      if (key.find("password") != std::string::npos) Fail("a password key was taken", text);
      if (key.empty()) Fail("an empty key was taken", text);
    }
  } catch (const UsageError&) {}
  try {
    const BatchCall call = parseBatchLine(text);
    if (call.function.empty() || call.function != upperAscii(call.function)) Fail("a bad function was taken", text);
    if (!call.parameters.is_object()) Fail("parameters that are no object were taken", text);
  } catch (const UsageError&) {}
  const std::vector<std::string> lines = selectionLines({text, "X = 'Y'"});
  std::string joined;
  for (const auto& line : lines) joined += (joined.empty() ? "" : " ") + line;
  if (LiteralsClosed(text) && selectionLines({joined}) != lines)
    Fail("a selection broke differently when joined", text);
  for (size_t at = 0; at <= text.size();) {
    const size_t end = std::min(text.find('\n', at), text.size());
    if (auto m = abapMessageOfTraceLine(text.substr(at, end - at)); m && m->type.size() > end - at)
      Fail("a message longer than its line", text);
    at = end + 1;
  }
  return 0;
}
