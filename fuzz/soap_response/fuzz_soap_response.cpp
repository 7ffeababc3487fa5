// ParseResponse on arbitrary answers, against a call with a parameter of
// every kind and type. Whatever the text, the reader either fills the call
// or raises one of the component's failures; nothing else may escape.
#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <string_view>

#include "model/model.h"
#include "platform/atlbase.h"
#include "platform/comdef.h"
#include "runtime/exceptions.h"
#include "soap/soap_rfc_xml.h"

namespace {

CComPtr<IFunctionCall> MakeCall() {
  CComPtr<IFunctionCall> call;
  if (FAILED(CreateFunctionCall(&call))) std::abort();
  call->put_Function(CComBSTR(u"F"));
  CComPtr<IRfcParameters> exporting, changing, tables;
  call->get_Exporting(&exporting);
  call->get_Changing(&changing);
  call->get_Tables(&tables);
  const struct {
    const char16_t* name;
    ABAPTYPE type;
  } scalars[] = {{u"C", TYPE_CHAR}, {u"D", TYPE_DATE}, {u"P", TYPE_BCD},    {u"T", TYPE_TIME},
                 {u"X", TYPE_BYTE}, {u"N", TYPE_NUM},  {u"F", TYPE_FLOAT},  {u"I", TYPE_INT},
                 {u"S", TYPE_INT2}, {u"B", TYPE_INT1}, {u"G", TYPE_STRING}, {u"Y", TYPE_XSTRING}};
  CComPtr<IRfcType> row;
  CreateRfcType(&row);
  row->DefineStruct(CComBSTR(u"ROW"));
  for (const auto& s : scalars) {
    exporting->AddScalar(CComBSTR(s.name), s.type, 10, 0, CComVariant());
    row->AddScalarStructField(CComBSTR(s.name), s.type, 10, 0, -1, -1, -1, -1);
  }
  changing->AddParameter(CComBSTR(u"S"), row);
  tables->AddTable(CComBSTR(u"T"), row);
  return call;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  CComPtr<IFunctionCall> call = MakeCall();
  try {
    SoapRfcXML::ParseResponse(std::string_view(reinterpret_cast<const char*>(data), size), call);
  } catch (const CXVeltrane&) {
  } catch (const _com_error&) {
  } catch (const std::range_error&) {
    // Invalid UTF-8 in a text.
  }
  return 0;
}
