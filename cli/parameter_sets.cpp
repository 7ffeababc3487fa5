#include "parameter_sets.h"

#include "failure.h"
#include "text.h"

namespace veltrane::cli {

CComPtr<IRfcParameters> parameterGroup(IFunctionCall* call, ParameterGroupGetter get) {
  CComPtr<IRfcParameters> group;
  check((call->*get)(&group), "reading the parameters");
  return group;
}

void forEachParameter(IRfcParameters* group, const std::function<void(IRfcParameter*, const std::string&)>& visit) {
  LONG count = 0;
  check(group->get_Count(&count), "counting parameters");
  for (LONG i = 1; i <= count; ++i) {
    CComPtr<IRfcParameter> p;
    check(group->get_Item(CComVariant(i), &p), "reading a parameter");
    CComBSTR name;
    check(p->get_name(&name), "reading a parameter name");
    visit(p, utf8(name));
  }
}

}  // namespace veltrane::cli
