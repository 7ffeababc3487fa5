#include "abap/error_record.h"

#include <cstdio>

#include "platform/unicode.h"
#include "runtime/trace.h"

namespace {

void AppendQuoted(std::string& out, std::u16string_view text) {
  out += '"';
  for (char c : WideToUtf8Lossy(text)) {
    switch (c) {
      case '"': out += "\\\""; break;
      case '\\': out += "\\\\"; break;
      case '\n': out += "\\n"; break;
      case '\r': out += "\\r"; break;
      case '\t': out += "\\t"; break;
      default:
        if (static_cast<unsigned char>(c) < 0x20) {
          char escaped[8];
          std::snprintf(escaped, sizeof escaped, "\\x%02x", static_cast<unsigned>(c));
          out += escaped;
        } else {
          out += c;
        }
    }
  }
  out += '"';
}

}  // namespace

bool RfcErrorRecord::HasAbapMessage() const {
  for (const std::u16string* field :
       {&messageClass, &messageType, &messageNumber, &messageV1, &messageV2, &messageV3, &messageV4})
    if (!field->empty()) return true;
  return false;
}

void TraceAbapMessage(const RfcErrorRecord& record) {
  if (!record.HasAbapMessage() || !TraceIsOpen() || TraceLevel() < TRACE_ERROR) return;
  const std::pair<const char*, const std::u16string*> fields[] = {
      {"ID", &record.messageClass}, {"Type", &record.messageType}, {"Number", &record.messageNumber},
      {"V1", &record.messageV1},    {"V2", &record.messageV2},     {"V3", &record.messageV3},
      {"V4", &record.messageV4}};
  std::string line = "ABAP message:";
  for (const auto& [name, value] : fields) {
    line += ' ';
    line += name;
    line += '=';
    AppendQuoted(line, *value);
  }
  line += '\n';
  TraceLog(TRACE_ERROR, std::string_view(line), nullptr, __FILE__, __LINE__);
}
