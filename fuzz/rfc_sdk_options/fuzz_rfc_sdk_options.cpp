// Arbitrary text as a connect string, as server arguments and as a packed number: each is parsed
// or refused with a Failure, never otherwise. A parsed connect string written again with every
// value quoted parses to the same IDs and values; a packed number reads back as the same value.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "rfc_sdk/bcd.h"
#include "rfc_sdk/errors.h"
#include "rfc_sdk/options.h"

namespace {

using namespace rfcsdk;

[[noreturn]] void die(const char* what, std::string_view text) {
  std::fprintf(stderr, "%s: %.*s\n", what, static_cast<int>(text.size()), text.data());
  std::abort();
}

void connectString(std::string_view text) {
  ConnectOptions o;
  try {
    o = ConnectOptions::parse(text);
  } catch (const Failure&) {
    return;
  }
  std::string again;
  for (const auto& [id, value] : o.values()) {
    if (id.empty()) die("an ID that is empty", text);
    if (!value.empty() && value.back() == '\\') continue;  // a quoted value cannot end in a backslash
    std::string quoted;
    for (char c : value) quoted += c == '"' ? std::string("\\\"") : std::string(1, c);
    again += id + "=\"" + quoted + "\" ";
  }
  try {
    const ConnectOptions second = ConnectOptions::parse(again);
    for (const auto& [id, value] : second.values())
      if (o.get(id) != value) die("a value written again parses differently", again);
  } catch (const Failure&) {
    die("a connect string written again is refused", again);
  }
}

void serverArguments(std::string_view text) {
  try {
    const ServerOptions o = parseServerArguments(splitCommandLine(text));
    if (o.programId.empty() || o.gatewayHost.empty() || o.gatewayService.empty()) die("accepted without a value", text);
  } catch (const Failure&) {}
}

void packed(std::string_view text) {
  unsigned char bcd[kMaxBcdBytes];
  int decimals = -1;
  if (packDecimal(text, decimals, bcd, kMaxBcdBytes) != kBcdOk) return;
  std::string back;
  if (unpackDecimal(bcd, kMaxBcdBytes, decimals, back) != kBcdOk) die("a packed number does not read back", text);
  unsigned char again[kMaxBcdBytes];
  int d2 = decimals;
  if (packDecimal(back, d2, again, kMaxBcdBytes) != kBcdOk ||
      std::string_view(reinterpret_cast<char*>(bcd), 16) != std::string_view(reinterpret_cast<char*>(again), 16))
    die("a packed number read back packs differently", text);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  connectString(text);
  serverArguments(text);
  packed(text);
  return 0;
}
