#include "invoke.h"

#include <algorithm>
#include <memory>
#include <vector>

#include <text.h>

#include "com_error.h"
#include "gil.h"
#include "variant_convert.h"

namespace vpy {

namespace {

// The VARIANTs of one call; all cleared at the end, including what [out]
// holders received.
class ArgumentBlock {
 public:
  explicit ArgumentBlock(size_t count) : m_args(count) {
    for (auto& v : m_args) VariantInit(&v);
  }
  ~ArgumentBlock() {
    for (auto& v : m_args) VariantClear(&v);
    for (auto& h : m_holders) VariantClear(h.get());
  }
  ArgumentBlock(const ArgumentBlock&) = delete;
  ArgumentBlock& operator=(const ArgumentBlock&) = delete;

  VARIANT* data() { return m_args.data(); }
  VARIANT& operator[](size_t i) { return m_args[i]; }

  // Makes slot i a reference to a new holder of type `base` that starts with `initial`.
  VARIANT* ByReference(size_t i, VARTYPE base, py::handle initial) {
    auto holder = std::make_unique<VARIANT>();
    VariantInit(holder.get());
    if (initial && !initial.is_none()) {
      VARIANT start;
      VariantInit(&start);
      try {
        ToVariant(initial, &start);
      } catch (...) {
        VariantClear(&start);
        throw;
      }
      HRESULT hr =
          base == VT_VARIANT ? VariantCopy(holder.get(), &start) : VariantChangeType(holder.get(), &start, 0, base);
      VariantClear(&start);
      Check(hr, "preparing a by-reference argument");
    } else if (base != VT_VARIANT) {
      holder->vt = base;  // the zero of the type (a null BSTR, 0, ...)
    }
    VARIANT* inner = holder.get();
    m_holders.push_back(std::move(holder));
    VARIANT& slot = m_args[i];
    if (base == VT_VARIANT) {
      slot.vt = VT_BYREF | VT_VARIANT;
      slot.pvarVal = inner;
    } else {
      slot.vt = static_cast<VARTYPE>(VT_BYREF | base);
      slot.byref = base == VT_DECIMAL ? static_cast<void*>(&inner->decVal) : static_cast<void*>(&inner->llVal);
    }
    return inner;
  }

 private:
  std::vector<VARIANT> m_args;
  std::vector<std::unique_ptr<VARIANT>> m_holders;
};

struct OutValue {
  VARIANT* holder;
  VARTYPE base;
  py::object target;  // the Variant whose .value receives it, or None for an added [out]
};

bool IsByReference(py::handle value, VARTYPE* base) {
  if (!py::isinstance<ExplicitVariant>(value)) return false;
  const VARTYPE vt = value.cast<const ExplicitVariant&>().vt;
  if (!(vt & VT_BYREF)) return false;
  *base = vt & static_cast<VARTYPE>(~VT_BYREF);
  return true;
}

py::object ReadOut(const OutValue& out) {
  if (out.base == VT_DECIMAL) out.holder->vt = VT_DECIMAL;  // the callee wrote the whole DECIMAL
  return FromVariant(*out.holder);
}

}  // namespace

DISPID IdOfName(IDispatch* dispatch, std::string_view name) {
  std::u16string wide = veltrane::cli::toUtf16(name);
  LPOLESTR names[] = {wide.data()};
  DISPID id = DISPID_UNKNOWN;
  if (FAILED(dispatch->GetIDsOfNames(IID_NULL, names, 1, LOCALE_USER_DEFAULT, &id))) return DISPID_UNKNOWN;
  return id;
}

void InvokeRaw(IDispatch* dispatch, DISPID id, WORD flags, VARIANT* argsReversed, UINT count, VARIANT* result,
               const std::string& name, bool releaseGil) {
  DISPID putId = DISPID_PROPERTYPUT;
  const bool put = (flags & (DISPATCH_PROPERTYPUT | DISPATCH_PROPERTYPUTREF)) != 0;
  DISPPARAMS params{argsReversed, put ? &putId : nullptr, count, put && count > 0 ? 1u : 0u};
  EXCEPINFO info{};
  UINT argErr = 0;
  HRESULT hr;
  if (releaseGil) {
    GilReleased released;
    hr = dispatch->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, flags, &params, result, &info, &argErr);
  } else {
    hr = dispatch->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, flags, &params, result, &info, &argErr);
  }
  if (FAILED(hr)) ThrowInvokeError(hr, info, py::none(), name);
}

py::object InvokeMember(IDispatch* dispatch, DISPID id, WORD flags, const std::string& name, const Member* member,
                        const py::tuple& args, const py::dict& kwargs, py::handle putValue) {
  const bool put = static_cast<bool>(putValue);
  const size_t given = args.size();
  // [out] parameters after the given ones, when the caller left them out.
  std::vector<size_t> addedOuts;
  if (member && member->method && (flags & DISPATCH_METHOD) && kwargs.empty())
    for (size_t p = given; p < member->methodOut.size(); ++p)
      if (member->methodOut[p]) addedOuts.push_back(p);
  const size_t positional = addedOuts.empty() ? given : addedOuts.back() + 1;

  // Keyword names become DISPIDs of the member's parameters.
  std::vector<std::string> keywords;
  std::vector<DISPID> namedIds;
  if (put) namedIds.push_back(DISPID_PROPERTYPUT);
  if (!kwargs.empty()) {
    std::vector<std::u16string> wide{veltrane::cli::toUtf16(name)};
    for (auto item : kwargs) {
      keywords.push_back(py::str(item.first).cast<std::string>());
      wide.push_back(veltrane::cli::toUtf16(keywords.back()));
    }
    std::vector<LPOLESTR> names;
    for (auto& w : wide) names.push_back(w.data());
    std::vector<DISPID> ids(names.size(), DISPID_UNKNOWN);
    const HRESULT hr = dispatch->GetIDsOfNames(IID_NULL, names.data(), static_cast<UINT>(names.size()),
                                               LOCALE_USER_DEFAULT, ids.data());
    for (size_t k = 0; k < keywords.size(); ++k)
      if (FAILED(hr) || ids[k + 1] == DISPID_UNKNOWN)
        throw py::type_error(name + "() got an unexpected keyword argument '" + keywords[k] + "'");
    namedIds.insert(namedIds.end(), ids.begin() + 1, ids.end());
  }

  // DISPPARAMS order: the named arguments first, then the positional ones last to first.
  const size_t named = namedIds.size();
  ArgumentBlock block(named + positional);
  std::vector<OutValue> outs;
  auto fill = [&](size_t slot, py::handle value) {
    VARTYPE base = VT_EMPTY;
    if (IsByReference(value, &base)) {
      VARIANT* holder = block.ByReference(slot, base, value.cast<const ExplicitVariant&>().value);
      outs.push_back({holder, base, py::reinterpret_borrow<py::object>(value)});
    } else {
      ToVariant(value, &block[slot]);
    }
  };
  size_t slot = 0;
  if (put) fill(slot++, putValue);
  for (auto item : kwargs) fill(slot++, item.second);
  for (size_t p = 0; p < positional; ++p) {
    const size_t s = named + (positional - 1 - p);
    if (p < given) {
      fill(s, args[p]);
    } else if (std::find(addedOuts.begin(), addedOuts.end(), p) != addedOuts.end()) {
      outs.push_back({block.ByReference(s, VT_VARIANT, py::handle()), VT_VARIANT, py::none()});
    } else {
      block[s].vt = VT_ERROR;  // a gap before an [out]: left out
      block[s].scode = DISP_E_PARAMNOTFOUND;
    }
  }

  DISPPARAMS params{block.data(), namedIds.empty() ? nullptr : namedIds.data(), static_cast<UINT>(named + positional),
                    static_cast<UINT>(named)};
  VARIANT result;
  VariantInit(&result);
  EXCEPINFO info{};
  UINT argErr = UINT(-1);
  HRESULT hr;
  {
    GilReleased released;
    hr = dispatch->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, flags, &params, put ? nullptr : &result, &info, &argErr);
  }
  if (FAILED(hr)) {
    VariantClear(&result);
    py::object which = py::none();
    if (argErr < named + positional) {
      if (argErr < named)
        which = put && argErr == 0 ? py::str("value") : py::str(keywords[argErr - (put ? 1 : 0)]);
      else
        which = py::int_(positional - 1 - (argErr - named));
    }
    ThrowInvokeError(hr, info, which, name);
  }
  py::object value;
  try {
    value = FromVariant(result);
  } catch (...) {
    VariantClear(&result);
    throw;
  }
  VariantClear(&result);

  py::list returned;
  if (!addedOuts.empty() && (!member || member->methodReturns)) returned.append(value);
  for (const OutValue& out : outs) {
    py::object v = ReadOut(out);
    if (out.target.is_none())
      returned.append(v);
    else
      out.target.cast<ExplicitVariant&>().value = v;
  }
  if (addedOuts.empty()) return value;
  if (returned.size() == 1) return returned[0];
  return py::tuple(returned);
}

}  // namespace vpy
