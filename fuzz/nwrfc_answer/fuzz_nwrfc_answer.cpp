// Fuzz target of our NW RFC SDK's reading side: the input is a function description as a system
// sends it, then values sections as the answers to calls carry them. The description becomes the
// library's descriptions and a function container, and each section is read into it and written
// out again, as RfcInvoke and a registered server do.
#include <cstddef>
#include <cstdint>
#include <string>

#include "nwrfc_sdk/connection.h"
#include "nwrfc_sdk/containers.h"
#include "nwrfc_sdk/marshal.h"
#include "rfc_protocol/messages.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  namespace proto = vsim::proto;
  proto::Reader in(reinterpret_cast<const char*>(data), size);
  try {
    // The first part is the description, as long as its length prefix says.
    const std::string_view described = in.text();
    proto::Reader d(described);
    const nwrfc::FunctionPtr desc = nwrfc::buildFunction(proto::readFunctionInfo(d));
    nwrfc::FunctionContainer f(desc);
    while (!in.done()) {
      nwrfc::readParameters(in, f);
      std::string out;
      proto::Writer w(out);
      nwrfc::writeParameters(w, f, nwrfc::Outgoing::Answer);
    }
  } catch (const proto::ProtocolError&) {
  } catch (const nwrfc::SdkError&) {}
  return 0;
}
