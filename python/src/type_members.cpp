#include "type_members.h"

#include <cstring>
#include <map>

#include <text.h>

namespace vpy {

namespace {

struct GuidLess {
  bool operator()(const GUID& a, const GUID& b) const { return std::memcmp(&a, &b, sizeof(GUID)) < 0; }
};

std::string MemberName(ITypeInfo* info, MEMBERID id) {
  BSTR name = nullptr;
  UINT count = 0;
  if (FAILED(info->GetNames(id, &name, 1, &count)) || count == 0) return {};
  std::string text = veltrane::cli::toUtf8(std::u16string_view(name, SysStringLen(name)));
  SysFreeString(name);
  return text;
}

std::string TypeName(ITypeInfo* info) {
  BSTR name = nullptr;
  if (FAILED(info->GetDocumentation(MEMBERID_NIL, &name, nullptr, nullptr, nullptr)) || !name) return "object";
  std::string text = veltrane::cli::toUtf8(std::u16string_view(name, SysStringLen(name)));
  SysFreeString(name);
  return text;
}

bool Returns(VARTYPE vt) { return vt != VT_VOID && vt != VT_HRESULT && vt != VT_EMPTY; }

std::shared_ptr<TypeMembers> Load(ITypeInfo* info, const TYPEATTR& attr) {
  auto type = std::make_shared<TypeMembers>();
  type->typeName = TypeName(info);
  auto memberFor = [&](MEMBERID id) -> Member& {
    auto it = type->byId.find(id);
    if (it != type->byId.end()) return type->members[it->second];
    type->byId.emplace(id, type->members.size());
    Member& m = type->members.emplace_back();
    m.dispid = id;
    m.name = MemberName(info, id);
    return m;
  };
  for (UINT i = 0; i < attr.cFuncs; ++i) {
    FUNCDESC* f = nullptr;
    if (FAILED(info->GetFuncDesc(i, &f))) continue;
    Member& m = memberFor(f->memid);
    m.hidden = m.hidden || (f->wFuncFlags & (FUNCFLAG_FHIDDEN | FUNCFLAG_FRESTRICTED)) != 0;
    switch (f->invkind) {
      case INVOKE_FUNC:
        m.method = true;
        m.methodParams = f->cParams;
        m.methodOut.clear();
        for (SHORT p = 0; p < f->cParams; ++p) {
          const USHORT flags = f->lprgelemdescParam[p].paramdesc.wParamFlags;
          m.methodOut.push_back((flags & PARAMFLAG_FOUT) != 0 && (flags & PARAMFLAG_FRETVAL) == 0);
        }
        m.methodReturns = Returns(f->elemdescFunc.tdesc.vt);
        break;
      case INVOKE_PROPERTYGET:
        m.get = true;
        m.getRequired = static_cast<short>(f->cParams - f->cParamsOpt);
        break;
      case INVOKE_PROPERTYPUT: m.put = true; break;
      case INVOKE_PROPERTYPUTREF: m.putref = true; break;
    }
    info->ReleaseFuncDesc(f);
  }
  for (UINT i = 0; i < attr.cVars; ++i) {
    VARDESC* v = nullptr;
    if (FAILED(info->GetVarDesc(i, &v))) continue;
    if (v->varkind == VAR_DISPATCH) {
      Member& m = memberFor(v->memid);
      m.get = true;
      m.put = (v->wVarFlags & VARFLAG_FREADONLY) == 0;
    }
    info->ReleaseVarDesc(v);
  }
  for (size_t i = 0; i < type->members.size(); ++i)
    type->byName.emplace(veltrane::cli::upperAscii(type->members[i].name), i);
  return type;
}

}  // namespace

const Member* TypeMembers::Find(std::string_view name) const {
  auto it = byName.find(veltrane::cli::upperAscii(name));
  return it == byName.end() ? nullptr : &members[it->second];
}

const Member* TypeMembers::FindId(DISPID id) const {
  auto it = byId.find(id);
  return it == byId.end() ? nullptr : &members[it->second];
}

std::shared_ptr<const TypeMembers> MembersOf(IDispatch* dispatch) {
  static std::map<GUID, std::shared_ptr<const TypeMembers>, GuidLess> cache;
  UINT count = 0;
  if (FAILED(dispatch->GetTypeInfoCount(&count)) || count == 0) return nullptr;
  CComPtr<ITypeInfo> info;
  if (FAILED(dispatch->GetTypeInfo(0, LOCALE_USER_DEFAULT, &info)) || !info) return nullptr;
  TYPEATTR* attr = nullptr;
  if (FAILED(info->GetTypeAttr(&attr)) || !attr) return nullptr;
  std::shared_ptr<const TypeMembers> type;
  auto it = cache.find(attr->guid);
  if (it != cache.end()) {
    type = it->second;
  } else {
    type = Load(info, *attr);
    if (attr->guid != GUID{}) cache.emplace(attr->guid, type);
  }
  info->ReleaseTypeAttr(attr);
  return type;
}

std::unordered_map<DISPID, std::string> EventNames(ITypeInfo* info) {
  std::unordered_map<DISPID, std::string> names;
  TYPEATTR* attr = nullptr;
  if (FAILED(info->GetTypeAttr(&attr)) || !attr) return names;
  for (UINT i = 0; i < attr->cFuncs; ++i) {
    FUNCDESC* f = nullptr;
    if (FAILED(info->GetFuncDesc(i, &f))) continue;
    names.emplace(f->memid, MemberName(info, f->memid));
    info->ReleaseFuncDesc(f);
  }
  info->ReleaseTypeAttr(attr);
  return names;
}

}  // namespace vpy
