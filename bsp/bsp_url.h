// The URL that a BSP window shows, and the parameters that a page hands
// back in the URL at which the exit page is reached. Nothing is percent-
// encoded or decoded: a client that needs encoding puts it into the values.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/wtypes.h"

namespace veltrane::bsp {

using NameValue = std::pair<std::u16string, std::u16string>;

// Where and as whom, as HttpSystemData and LogonData give it.
struct UrlSource {
  std::u16string protocol;
  std::u16string host;
  LONG port = 0;
  std::u16string client;
  std::u16string language;
  std::vector<NameValue> parameters;
};

// An application that contains "://" is the URL itself; any other is a path
// on protocol (with "://" appended where it lacks it), host and port, with a
// "/" in front if it has none. Then "sap-client=" and "sap-language=" are
// appended unless the URL names them already or the value is empty, each
// behind "&" when the URL has a "?", "?" otherwise; then every parameter as
// "&name=value", the first one included.
std::u16string BuildUrl(std::u16string_view application, const UrlSource& source);

// A parameter that a page returned; traced tells whether it gets the trace
// line "returned parameter %s=%s".
struct ReturnedParameter {
  std::u16string name;
  std::u16string value;
  bool traced;
};

// The pairs of the query behind the last "?" of a URL. A pair runs from the
// current position to the next "=" (none ends the list) for its name and on
// to the next "&" or the end for its value. When the first name is
// "sap-params", its value is Base64 of the query to read instead (decoded
// into Latin-1 up to the first character outside the alphabet) and the other
// pairs of the URL are ignored; otherwise the first pair is taken untraced
// and the others traced.
std::vector<ReturnedParameter> ReturnedParameters(std::u16string_view finalUrl);

struct WindowRect {
  int left, top, right, bottom;
};

// The window's rectangle: a left edge beyond the screen's width moves to half
// the width, a top edge beyond its height to half the height; width and
// height are added as they are.
WindowRect TargetRectangle(int screenWidth, int screenHeight, LONG left, LONG top, LONG width, LONG height);

}  // namespace veltrane::bsp
