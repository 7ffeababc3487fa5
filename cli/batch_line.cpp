#include "batch_line.h"

#include "failure.h"
#include "text.h"

namespace veltrane::cli {

BatchCall parseBatchLine(const std::string& line) {
  if (!validUtf8(line)) throw UsageError("the line is not valid UTF-8");
  Json j;
  try {
    j = Json::parse(line);
  } catch (const nlohmann::json::parse_error& e) {
    std::string what = e.what();
    if (const size_t p = what.find("parse error"); p != std::string::npos) what = what.substr(p);
    throw UsageError("the line is not valid JSON: " + what);
  }
  if (!j.is_object()) throw UsageError("a line is an object with \"function\" and \"parameters\"");
  BatchCall c;
  for (const auto& [key, value] : j.items()) {
    if (key == "function" && value.is_string() && !value.get<std::string>().empty()) {
      c.function = upperAscii(value.get<std::string>());
    } else if (key == "parameters" && value.is_object()) {
      c.parameters = value;
    } else if (key == "only" && value.is_array()) {
      for (const auto& n : value) {
        if (!n.is_string()) throw UsageError("\"only\" is an array of parameter names");
        c.only.insert(upperAscii(n.get<std::string>()));
      }
    } else if (key == "id") {
      c.id = value;
    } else {
      throw UsageError("unknown or bad member \"" + key +
                       "\" (a line has \"function\", \"parameters\", \"only\", \"id\")");
    }
  }
  if (c.function.empty()) throw UsageError("the line names no \"function\"");
  return c;
}

}  // namespace veltrane::cli
