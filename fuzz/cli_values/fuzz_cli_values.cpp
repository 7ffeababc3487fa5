// JSON text as the command takes it for the parameters of `call` and from
// a `serve` command's output: each member goes into the importing, changing
// or tables parameter of its name, or is refused with a usage error, and
// nothing else fails. A value taken reads back as JSON, and that JSON is
// taken again to the same value.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "call_request.h"
#include "failure.h"
#include "text.h"
#include "values.h"

namespace {

using namespace veltrane::cli;

// One parameter of each type the command fills.
constexpr const char* kInterface =
    R"(<function name="Z_FUZZ">)"
    R"(<importing name="C"><type name="" kind="scalar" abaptype="0" length="10" decimals="0"/></importing>)"
    R"(<importing name="D"><type name="" kind="scalar" abaptype="1" length="8" decimals="0"/></importing>)"
    R"(<importing name="P"><type name="" kind="scalar" abaptype="2" length="7" decimals="2"/></importing>)"
    R"(<importing name="T"><type name="" kind="scalar" abaptype="3" length="6" decimals="0"/></importing>)"
    R"(<importing name="X"><type name="" kind="scalar" abaptype="4" length="4" decimals="0"/></importing>)"
    R"(<importing name="N"><type name="" kind="scalar" abaptype="6" length="5" decimals="0"/></importing>)"
    R"(<importing name="F"><type name="" kind="scalar" abaptype="7" length="8" decimals="16"/></importing>)"
    R"(<importing name="I"><type name="" kind="scalar" abaptype="8" length="4" decimals="0"/></importing>)"
    R"(<importing name="S"><type name="" kind="scalar" abaptype="9" length="2" decimals="0"/></importing>)"
    R"(<importing name="B"><type name="" kind="scalar" abaptype="10" length="1" decimals="0"/></importing>)"
    R"(<importing name="G"><type name="" kind="scalar" abaptype="29" length="0" decimals="0"/></importing>)"
    R"(<importing name="Y"><type name="" kind="scalar" abaptype="30" length="0" decimals="0"/></importing>)"
    R"(<changing name="ST"><type name="ST" kind="struct">)"
    R"(<type name="A" kind="scalar" abaptype="0" length="3" decimals="0"/>)"
    R"(<type name="IN" kind="struct"><type name="B" kind="scalar" abaptype="8" length="4" decimals="0"/>)"
    R"(<type name="D" kind="scalar" abaptype="1" length="8" decimals="0"/></type></type></changing>)"
    R"(<tables name="TB"><type name="TB" kind="table"><type name="R" kind="struct">)"
    R"(<type name="K" kind="scalar" abaptype="6" length="3" decimals="0"/>)"
    R"(<type name="V" kind="scalar" abaptype="2" length="5" decimals="1"/>)"
    R"(<type name="S" kind="table"><type name="R2" kind="struct">)"
    R"(<type name="Z" kind="scalar" abaptype="3" length="6" decimals="0"/></type></type></type></type></tables>)"
    R"(</function>)";

// An empty call with the interface, made by a session as the command makes it.
CComPtr<IFunctionCall> NewCall() {
  static ISession* session = [] {
    ISession* s = nullptr;
    if (FAILED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED)) ||
        FAILED(CoCreateInstance(CLSID_SoapSession, nullptr, CLSCTX_INPROC_SERVER, IID_ISession,
                                reinterpret_cast<void**>(&s))))
      std::abort();
    return s;
  }();
  CComPtr<IFunctionCall> call;
  if (FAILED(session->CreateCall(&call)) || !call || call->FromXML(bstr(kInterface)) != S_OK) std::abort();
  return call;
}

CComPtr<IRfcField> Field(IFunctionCall* call, const std::string& name) {
  for (auto get : {&IFunctionCall::get_Importing, &IFunctionCall::get_Changing, &IFunctionCall::get_Tables}) {
    CComPtr<IRfcParameters> set;
    if (FAILED((call->*get)(&set))) std::abort();
    VARIANT_BOOL has = VARIANT_FALSE;
    if (SUCCEEDED(set->HasKey(bstr(name), &has)) && has == VARIANT_TRUE) {
      CComPtr<IRfcParameter> p;
      CComPtr<IRfcField> field;
      if (FAILED(set->get_Item(CComVariant(bstr(name)), &p)) || FAILED(p->get_InternalField(&field))) std::abort();
      return field;
    }
  }
  return nullptr;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  Json input;
  try {
    input = Json::parse(text);
  } catch (const Json::exception&) {
    return 0;
  }
  if (!input.is_object()) return 0;
  CComPtr<IFunctionCall> call = NewCall();
  for (const auto& [name, value] : input.items()) {
    const std::string upper = upperAscii(name);
    CComPtr<IRfcField> field = Field(call, upper);
    if (!field) continue;
    Json read;
    try {
      jsonToField(field, value, upper);
      read = fieldToJson(field);
    } catch (const UsageError&) {
      continue;
    }
    // What was taken and read back goes in again and reads back the same.
    CComPtr<IRfcField> again = Field(NewCall(), upper);
    try {
      jsonToField(again, read, upper);
    } catch (const UsageError& e) {
      std::fprintf(stderr, "%s: %s was read back as %s, which is refused: %s\n", upper.c_str(), value.dump().c_str(),
                   read.dump().c_str(), e.what());
      std::abort();
    }
    if (fieldToJson(again) != read) {
      std::fprintf(stderr, "%s: %s was read back as %s, then as %s\n", upper.c_str(), value.dump().c_str(),
                   read.dump().c_str(), fieldToJson(again).dump().c_str());
      std::abort();
    }
  }
  SetErrorInfo(0, nullptr);
  return 0;
}
