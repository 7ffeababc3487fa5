// ITypeLib and ITypeInfo over the generated type descriptions, and the
// standard library's IUnknown and IDispatch that the interfaces derive from.
//
// A dual interface has two views, as on the platform: the dispatch view
// (TKIND_DISPATCH, members of the bases included, [retval] lifted into the
// result), which IDispatch::GetTypeInfo, ITypeLib::GetTypeInfo and coclasses
// hand out, and the vtable view (TKIND_INTERFACE, own members with their
// slots), reached through GetRefTypeOfImplType(-1).
#include "platform/typelib.h"

#include "platform/internal/type_library.h"

#include "platform/atlbase.h"

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <vector>

namespace veltrane::tlb {

namespace {

// ---------------------------------------------------------------------------
// IUnknown and IDispatch of the standard library (stdole2, version 2.0).

const GUID kStdOleLibId = {0x00020430, 0, 0, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};

const ParamInfo kQueryInterfaceParams[] = {
    {u"riid", VT_CLSID, kNoRef, 1, PARAMFLAG_FIN, DefaultKind::None, 0, 0.0, nullptr},
    {u"ppvObj", VT_VOID, kNoRef, 2, PARAMFLAG_FOUT, DefaultKind::None, 0, 0.0, nullptr},
};
const MemberInfo kUnknownMembers[] = {
    {u"QueryInterface", 0x60000000, INVOKE_FUNC, FUNCFLAG_FRESTRICTED, 0, VT_HRESULT, 2, kQueryInterfaceParams, nullptr,
     nullptr},
    {u"AddRef", 0x60000001, INVOKE_FUNC, FUNCFLAG_FRESTRICTED, 1, VT_UI4, 0, nullptr, nullptr, nullptr},
    {u"Release", 0x60000002, INVOKE_FUNC, FUNCFLAG_FRESTRICTED, 2, VT_UI4, 0, nullptr, nullptr, nullptr},
};
const ParamInfo kGetTypeInfoCountParams[] = {
    {u"pctinfo", VT_UINT, kNoRef, 1, PARAMFLAG_FOUT, DefaultKind::None, 0, 0.0, nullptr},
};
const ParamInfo kGetTypeInfoParams[] = {
    {u"itinfo", VT_UINT, kNoRef, 0, PARAMFLAG_FIN, DefaultKind::None, 0, 0.0, nullptr},
    {u"lcid", VT_UI4, kNoRef, 0, PARAMFLAG_FIN, DefaultKind::None, 0, 0.0, nullptr},
    {u"pptinfo", VT_VOID, kNoRef, 2, PARAMFLAG_FOUT, DefaultKind::None, 0, 0.0, nullptr},
};
const ParamInfo kGetIDsOfNamesParams[] = {
    {u"riid", VT_CLSID, kNoRef, 1, PARAMFLAG_FIN, DefaultKind::None, 0, 0.0, nullptr},
    {u"rgszNames", VT_I1, kNoRef, 2, PARAMFLAG_FIN, DefaultKind::None, 0, 0.0, nullptr},
    {u"cNames", VT_UINT, kNoRef, 0, PARAMFLAG_FIN, DefaultKind::None, 0, 0.0, nullptr},
    {u"lcid", VT_UI4, kNoRef, 0, PARAMFLAG_FIN, DefaultKind::None, 0, 0.0, nullptr},
    {u"rgdispid", VT_I4, kNoRef, 1, PARAMFLAG_FOUT, DefaultKind::None, 0, 0.0, nullptr},
};
const ParamInfo kInvokeParams[] = {
    {u"dispidMember", VT_I4, kNoRef, 0, PARAMFLAG_FIN, DefaultKind::None, 0, 0.0, nullptr},
    {u"riid", VT_CLSID, kNoRef, 1, PARAMFLAG_FIN, DefaultKind::None, 0, 0.0, nullptr},
    {u"lcid", VT_UI4, kNoRef, 0, PARAMFLAG_FIN, DefaultKind::None, 0, 0.0, nullptr},
    {u"wFlags", VT_UI2, kNoRef, 0, PARAMFLAG_FIN, DefaultKind::None, 0, 0.0, nullptr},
    {u"pdispparams", VT_VOID, kNoRef, 1, PARAMFLAG_FIN, DefaultKind::None, 0, 0.0, nullptr},
    {u"pvarResult", VT_VARIANT, kNoRef, 1, PARAMFLAG_FOUT, DefaultKind::None, 0, 0.0, nullptr},
    {u"pexcepinfo", VT_VOID, kNoRef, 1, PARAMFLAG_FOUT, DefaultKind::None, 0, 0.0, nullptr},
    {u"puArgErr", VT_UINT, kNoRef, 1, PARAMFLAG_FOUT, DefaultKind::None, 0, 0.0, nullptr},
};
const MemberInfo kDispatchMembers[] = {
    {u"GetTypeInfoCount", 0x60010000, INVOKE_FUNC, FUNCFLAG_FRESTRICTED, 3, VT_HRESULT, 1, kGetTypeInfoCountParams,
     nullptr, nullptr},
    {u"GetTypeInfo", 0x60010001, INVOKE_FUNC, FUNCFLAG_FRESTRICTED, 4, VT_HRESULT, 3, kGetTypeInfoParams, nullptr,
     nullptr},
    {u"GetIDsOfNames", 0x60010002, INVOKE_FUNC, FUNCFLAG_FRESTRICTED, 5, VT_HRESULT, 5, kGetIDsOfNamesParams, nullptr,
     nullptr},
    {u"Invoke", 0x60010003, INVOKE_FUNC, FUNCFLAG_FRESTRICTED, 6, VT_HRESULT, 8, kInvokeParams, nullptr, nullptr},
};
const MemberInfo* const kUnknownFlat[] = {&kUnknownMembers[0], &kUnknownMembers[1], &kUnknownMembers[2]};
const MemberInfo* const kDispatchFlat[] = {&kUnknownMembers[0],  &kUnknownMembers[1],  &kUnknownMembers[2],
                                           &kDispatchMembers[0], &kDispatchMembers[1], &kDispatchMembers[2],
                                           &kDispatchMembers[3]};

const TypeData kStdOleTypes[] = {
    {u"IUnknown", &IID_IUnknown, TKIND_INTERFACE, TYPEFLAG_FHIDDEN, nullptr, kNoRef, 0, 3, kUnknownMembers, 3,
     kUnknownFlat, 0, nullptr, 0, nullptr},
    {u"IDispatch", &IID_IDispatch, TKIND_INTERFACE, TYPEFLAG_FDISPATCHABLE, nullptr, 0, 3, 4, kDispatchMembers, 7,
     kDispatchFlat, 0, nullptr, 0, nullptr},
};
constexpr USHORT kStdOleIUnknown = 0;
constexpr USHORT kStdOleIDispatch = 1;

const LibraryData kStdOle{u"stdole", &kStdOleLibId, 2, 0, 0, u"OLE Automation", 2, kStdOleTypes, 0, nullptr};

// ---------------------------------------------------------------------------

bool IsDual(const TypeData& t) { return t.kind == TKIND_INTERFACE && (t.typeFlags & TYPEFLAG_FDUAL); }

OLECHAR Fold(OLECHAR c) { return (c >= u'A' && c <= u'Z') ? static_cast<OLECHAR>(c - u'A' + u'a') : c; }

bool SameName(const OLECHAR* a, const OLECHAR* b) {
  if (!a || !b) return false;
  for (; *a && *b; ++a, ++b)
    if (Fold(*a) != Fold(*b)) return false;
  return *a == *b;
}

HRESULT SetString(BSTR* out, const OLECHAR* s) {
  if (!out) return S_OK;
  *out = nullptr;
  if (!s) return S_OK;
  *out = SysAllocString(s);
  return *out ? S_OK : E_OUTOFMEMORY;
}

class CTypeLib;

// One view of one type. Type information lives as long as the process; the
// reference count is kept for the callers' balance only.
class CTypeInfo final : public ITypeInfo {
 public:
  CTypeInfo(CTypeLib* lib, USHORT index, bool vtableView) : m_lib(lib), m_index(index), m_vtable(vtableView) {}

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
    if (!ppv) return E_POINTER;
    if (riid == IID_IUnknown || riid == IID_ITypeInfo) {
      *ppv = static_cast<ITypeInfo*>(this);
      AddRef();
      return S_OK;
    }
    *ppv = nullptr;
    return E_NOINTERFACE;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++m_refs + 1; }
  ULONG STDMETHODCALLTYPE Release() override { return --m_refs + 1; }

  HRESULT STDMETHODCALLTYPE GetTypeAttr(TYPEATTR** ppTypeAttr) override;
  HRESULT STDMETHODCALLTYPE GetFuncDesc(UINT index, FUNCDESC** ppFuncDesc) override;
  HRESULT STDMETHODCALLTYPE GetVarDesc(UINT index, VARDESC** ppVarDesc) override;
  HRESULT STDMETHODCALLTYPE GetNames(MEMBERID memid, BSTR* rgBstrNames, UINT cMaxNames, UINT* pcNames) override;
  HRESULT STDMETHODCALLTYPE GetRefTypeOfImplType(UINT index, HREFTYPE* pRefType) override;
  HRESULT STDMETHODCALLTYPE GetImplTypeFlags(UINT index, INT* pImplTypeFlags) override;
  HRESULT STDMETHODCALLTYPE GetIDsOfNames(LPOLESTR* rgszNames, UINT cNames, MEMBERID* pMemId) override;
  HRESULT STDMETHODCALLTYPE GetDocumentation(MEMBERID memid, BSTR* pBstrName, BSTR* pBstrDocString,
                                             DWORD* pdwHelpContext, BSTR* pBstrHelpFile) override;
  HRESULT STDMETHODCALLTYPE GetRefTypeInfo(HREFTYPE hRefType, ITypeInfo** ppTInfo) override;
  HRESULT STDMETHODCALLTYPE GetContainingTypeLib(ITypeLib** ppTLib, UINT* pIndex) override;
  void STDMETHODCALLTYPE ReleaseTypeAttr(TYPEATTR* pTypeAttr) override;
  void STDMETHODCALLTYPE ReleaseFuncDesc(FUNCDESC* pFuncDesc) override;
  void STDMETHODCALLTYPE ReleaseVarDesc(VARDESC* pVarDesc) override;

 private:
  struct FuncDescBlock {
    FUNCDESC desc{};
    std::vector<ELEMDESC> params;
    std::vector<std::unique_ptr<TYPEDESC>> pointees;
    std::vector<std::unique_ptr<PARAMDESCEX>> defaults;
    ~FuncDescBlock() {
      for (auto& d : defaults) VariantClear(&d->varDefaultValue);
    }
  };
  struct VarDescBlock {
    VARDESC desc{};
    VARIANT value;
  };

  const TypeData& type() const;
  const LibraryData& data() const;
  TYPEKIND kind() const;
  bool dispatchView() const { return kind() == TKIND_DISPATCH; }
  USHORT funcCount() const;
  const MemberInfo& func(UINT index) const;
  const MemberInfo* funcOf(MEMBERID memid) const;
  // Number of parameters a function shows in this view.
  SHORT shownParams(const MemberInfo& m) const;
  bool liftsRetval(const MemberInfo& m) const;
  HRESULT buildTypeDesc(const ParamInfo& p, int levels, TYPEDESC* out, FuncDescBlock& block) const;

  CTypeLib* m_lib;
  USHORT m_index;
  bool m_vtable;
  std::atomic<ULONG> m_refs{0};

  std::mutex m_mutex;
  std::map<void*, std::unique_ptr<TYPEATTR>> m_attrs;
  std::map<void*, std::unique_ptr<FuncDescBlock>> m_funcs;
  std::map<void*, std::unique_ptr<VarDescBlock>> m_vars;
};

class CTypeLib final : public ITypeLib {
 public:
  CTypeLib(const LibraryData& data, USHORT libraryId) : m_data(data), m_id(libraryId) {
    for (USHORT i = 0; i < data.typeCount; ++i) {
      m_dispatchViews.push_back(std::make_unique<CTypeInfo>(this, i, false));
      m_vtableViews.push_back(IsDual(data.types[i]) ? std::make_unique<CTypeInfo>(this, i, true) : nullptr);
    }
  }

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppv) override {
    if (!ppv) return E_POINTER;
    if (riid == IID_IUnknown || riid == IID_ITypeLib) {
      *ppv = static_cast<ITypeLib*>(this);
      AddRef();
      return S_OK;
    }
    *ppv = nullptr;
    return E_NOINTERFACE;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return ++m_refs + 1; }
  ULONG STDMETHODCALLTYPE Release() override { return --m_refs + 1; }

  UINT STDMETHODCALLTYPE GetTypeInfoCount() override { return m_data.typeCount; }

  HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT index, ITypeInfo** ppTInfo) override {
    if (!ppTInfo) return E_INVALIDARG;
    *ppTInfo = nullptr;
    if (index >= m_data.typeCount) return TYPE_E_ELEMENTNOTFOUND;
    return view(static_cast<USHORT>(index), false, ppTInfo);
  }

  HRESULT STDMETHODCALLTYPE GetTypeInfoType(UINT index, TYPEKIND* pTKind) override {
    if (!pTKind) return E_INVALIDARG;
    if (index >= m_data.typeCount) return TYPE_E_ELEMENTNOTFOUND;
    const TypeData& t = m_data.types[index];
    *pTKind = IsDual(t) ? TKIND_DISPATCH : t.kind;
    return S_OK;
  }

  HRESULT STDMETHODCALLTYPE GetTypeInfoOfGuid(REFGUID guid, ITypeInfo** ppTinfo) override {
    if (!ppTinfo) return E_INVALIDARG;
    *ppTinfo = nullptr;
    for (USHORT i = 0; i < m_data.typeCount; ++i)
      if (m_data.types[i].guid && *m_data.types[i].guid == guid) return view(i, false, ppTinfo);
    return TYPE_E_ELEMENTNOTFOUND;
  }

  HRESULT STDMETHODCALLTYPE GetDocumentation(INT index, BSTR* pBstrName, BSTR* pBstrDocString, DWORD* pdwHelpContext,
                                             BSTR* pBstrHelpFile) override {
    const OLECHAR* name = m_data.name;
    const OLECHAR* doc = m_data.doc;
    if (index != -1) {
      if (index < 0 || index >= m_data.typeCount) return TYPE_E_ELEMENTNOTFOUND;
      name = m_data.types[index].name;
      doc = m_data.types[index].doc;
    }
    if (pdwHelpContext) *pdwHelpContext = 0;
    SetString(pBstrHelpFile, nullptr);
    HRESULT hr = SetString(pBstrName, name);
    if (SUCCEEDED(hr)) hr = SetString(pBstrDocString, doc);
    if (FAILED(hr) && pBstrName) {
      SysFreeString(*pBstrName);
      *pBstrName = nullptr;
    }
    return hr;
  }

  const LibraryData& data() const { return m_data; }
  USHORT id() const { return m_id; }

  HRESULT view(USHORT index, bool vtable, ITypeInfo** pp) {
    CTypeInfo* info = vtable ? m_vtableViews[index].get() : m_dispatchViews[index].get();
    if (!info) info = m_dispatchViews[index].get();
    info->AddRef();
    *pp = info;
    return S_OK;
  }

 private:
  const LibraryData& m_data;
  USHORT m_id;
  std::atomic<ULONG> m_refs{0};
  std::vector<std::unique_ptr<CTypeInfo>> m_dispatchViews;
  std::vector<std::unique_ptr<CTypeInfo>> m_vtableViews;
};

// Libraries known to the process: the standard library first, then each
// library in the order of its registration. HREFTYPEs name a type in any of
// them by the library's place in this list.
constexpr USHORT kLibStdOle = 0;

class LibraryRegistry {
 public:
  static LibraryRegistry& Instance() {
    static LibraryRegistry registry;
    return registry;
  }

  CTypeLib* Find(USHORT id) {
    std::lock_guard<std::mutex> lock(m_mutex);
    return id < m_libraries.size() ? m_libraries[id].get() : nullptr;
  }

  CTypeLib& Add(const LibraryData& data) {
    std::lock_guard<std::mutex> lock(m_mutex);
    for (auto& lib : m_libraries)
      if (&lib->data() == &data) return *lib;
    m_libraries.push_back(std::make_unique<CTypeLib>(data, static_cast<USHORT>(m_libraries.size())));
    return *m_libraries.back();
  }

  // The library whose tables hold `type`, or null.
  CTypeLib* Holding(const TypeData& type) {
    std::lock_guard<std::mutex> lock(m_mutex);
    for (auto& lib : m_libraries) {
      const LibraryData& data = lib->data();
      if (&type >= data.types && &type < data.types + data.typeCount) return lib.get();
    }
    return nullptr;
  }

  template <class F>
  void ForEach(F f) {
    std::lock_guard<std::mutex> lock(m_mutex);
    for (auto& lib : m_libraries) f(*lib);
  }

 private:
  LibraryRegistry() { m_libraries.push_back(std::make_unique<CTypeLib>(kStdOle, kLibStdOle)); }

  std::mutex m_mutex;
  // Libraries live as long as the process; the vector holds them by pointer.
  std::vector<std::unique_ptr<CTypeLib>> m_libraries;
};

CTypeLib& Library(USHORT id) { return *LibraryRegistry::Instance().Find(id); }

constexpr HREFTYPE kVtableViewBit = 0x8000;

HREFTYPE MakeRef(USHORT lib, USHORT index, bool vtable) {
  return (static_cast<HREFTYPE>(lib) << 16) | (vtable ? kVtableViewBit : 0) | index;
}

// A reference from a type of `lib` to another type: its library and index.
void ResolveRef(USHORT lib, int16_t ref, USHORT* outLib, USHORT* outIndex) {
  if (ref == kRefIUnknown) {
    *outLib = kLibStdOle;
    *outIndex = kStdOleIUnknown;
  } else if (ref == kRefIDispatch) {
    *outLib = kLibStdOle;
    *outIndex = kStdOleIDispatch;
  } else {
    *outLib = lib;
    *outIndex = static_cast<USHORT>(ref);
  }
}

// --- CTypeInfo -------------------------------------------------------------

const TypeData& CTypeInfo::type() const { return m_lib->data().types[m_index]; }
const LibraryData& CTypeInfo::data() const { return m_lib->data(); }

TYPEKIND CTypeInfo::kind() const {
  const TypeData& t = type();
  if (IsDual(t)) return m_vtable ? TKIND_INTERFACE : TKIND_DISPATCH;
  return t.kind;
}

USHORT CTypeInfo::funcCount() const {
  const TypeData& t = type();
  if (t.kind != TKIND_INTERFACE && t.kind != TKIND_DISPATCH) return 0;
  return dispatchView() ? t.dispatchCount : t.memberCount;
}

const MemberInfo& CTypeInfo::func(UINT index) const {
  const TypeData& t = type();
  return dispatchView() ? *t.dispatchMembers[index] : t.members[index];
}

const MemberInfo* CTypeInfo::funcOf(MEMBERID memid) const {
  for (UINT i = 0; i < funcCount(); ++i)
    if (func(i).dispid == memid) return &func(i);
  return nullptr;
}

bool CTypeInfo::liftsRetval(const MemberInfo& m) const {
  return dispatchView() && m.paramCount > 0 && (m.params[m.paramCount - 1].flags & PARAMFLAG_FRETVAL);
}

SHORT CTypeInfo::shownParams(const MemberInfo& m) const {
  return static_cast<SHORT>(m.paramCount - (liftsRetval(m) ? 1 : 0));
}

HRESULT CTypeInfo::buildTypeDesc(const ParamInfo& p, int levels, TYPEDESC* out, FuncDescBlock& block) const {
  // Innermost first: the value, then one VT_PTR per level.
  TYPEDESC value{};
  if (p.ref >= 0 && p.ref < data().typeCount) {
    const TypeData& target = data().types[p.ref];
    value.vt = VT_USERDEFINED;
    value.hreftype = MakeRef(m_lib->id(), static_cast<USHORT>(p.ref), false);
    if (target.kind != TKIND_ENUM) {
      // An interface is passed as a pointer to it.
      auto inner = std::make_unique<TYPEDESC>(value);
      value = TYPEDESC{};
      value.vt = VT_PTR;
      value.lptdesc = inner.get();
      block.pointees.push_back(std::move(inner));
    }
  } else if (p.vt & VT_ARRAY) {
    auto element = std::make_unique<TYPEDESC>();
    element->vt = static_cast<VARTYPE>(p.vt & ~VT_ARRAY);
    value.vt = VT_SAFEARRAY;
    value.lptdesc = element.get();
    block.pointees.push_back(std::move(element));
  } else {
    value.vt = p.vt;
  }
  for (int i = 0; i < levels; ++i) {
    auto inner = std::make_unique<TYPEDESC>(value);
    value = TYPEDESC{};
    value.vt = VT_PTR;
    value.lptdesc = inner.get();
    block.pointees.push_back(std::move(inner));
  }
  *out = value;
  return S_OK;
}

HRESULT CTypeInfo::GetTypeAttr(TYPEATTR** ppTypeAttr) {
  if (!ppTypeAttr) return E_INVALIDARG;
  auto attr = std::make_unique<TYPEATTR>();
  const TypeData& t = type();
  const TYPEKIND k = kind();
  attr->guid = t.guid ? *t.guid : GUID_NULL;
  attr->lcid = data().lcid;
  attr->memidConstructor = MEMBERID_NIL;
  attr->memidDestructor = MEMBERID_NIL;
  attr->lpstrSchema = nullptr;
  attr->typekind = k;
  attr->cFuncs = funcCount();
  attr->cVars = k == TKIND_ENUM ? t.valueCount : 0;
  attr->wTypeFlags = t.typeFlags;
  attr->wMajorVerNum = 0;
  attr->wMinorVerNum = 0;
  attr->tdescAlias.vt = VT_EMPTY;
  attr->idldescType = 0;
  switch (k) {
    case TKIND_ENUM:
      attr->cbSizeInstance = sizeof(LONG);
      attr->cbAlignment = alignof(LONG);
      attr->cImplTypes = 0;
      attr->cbSizeVft = 0;
      break;
    case TKIND_DISPATCH:
      attr->cbSizeInstance = sizeof(void*);
      attr->cbAlignment = alignof(void*);
      attr->cImplTypes = 1;
      attr->cbSizeVft = 7 * sizeof(void*);
      break;
    case TKIND_INTERFACE:
      attr->cbSizeInstance = sizeof(void*);
      attr->cbAlignment = alignof(void*);
      attr->cImplTypes = t.base == kNoRef ? 0 : 1;
      attr->cbSizeVft = static_cast<WORD>((t.firstSlot + t.memberCount) * sizeof(void*));
      break;
    default:
      attr->cbSizeInstance = sizeof(void*);
      attr->cbAlignment = alignof(void*);
      attr->cImplTypes = t.implCount;
      attr->cbSizeVft = 0;
      break;
  }
  std::lock_guard<std::mutex> lock(m_mutex);
  TYPEATTR* raw = attr.get();
  m_attrs.emplace(raw, std::move(attr));
  *ppTypeAttr = raw;
  return S_OK;
}

HRESULT CTypeInfo::GetFuncDesc(UINT index, FUNCDESC** ppFuncDesc) {
  if (!ppFuncDesc) return E_INVALIDARG;
  *ppFuncDesc = nullptr;
  if (index >= funcCount()) return TYPE_E_ELEMENTNOTFOUND;
  const MemberInfo& m = func(index);
  const bool dispatch = dispatchView();
  const SHORT shown = shownParams(m);

  auto block = std::make_unique<FuncDescBlock>();
  FUNCDESC& d = block->desc;
  d.memid = m.dispid;
  d.lprgscode = nullptr;
  d.funckind = dispatch ? FUNC_DISPATCH : FUNC_PUREVIRTUAL;
  d.invkind = m.invkind;
  d.callconv = CC_STDCALL;
  d.cParams = shown;
  d.cParamsOpt = 0;
  d.oVft = static_cast<SHORT>(m.slot >= 0 ? m.slot * static_cast<int>(sizeof(void*)) : 0);
  d.cScodes = 0;
  d.wFuncFlags = m.funcFlags;

  block->params.resize(static_cast<size_t>(shown));
  for (SHORT i = 0; i < shown; ++i) {
    const ParamInfo& p = m.params[i];
    ELEMDESC& e = block->params[static_cast<size_t>(i)];
    e = ELEMDESC{};
    HRESULT hr = buildTypeDesc(p, p.indirection, &e.tdesc, *block);
    if (FAILED(hr)) return hr;
    e.paramdesc.wParamFlags = p.flags;
    if (p.flags & PARAMFLAG_FOPT) ++d.cParamsOpt;
    if (p.defaultKind != DefaultKind::None) {
      auto ex = std::make_unique<PARAMDESCEX>();
      ex->cBytes = sizeof(PARAMDESCEX);
      VariantInit(&ex->varDefaultValue);
      hr = DefaultValueOf(p, &ex->varDefaultValue);
      if (FAILED(hr)) return hr;
      e.paramdesc.pparamdescex = ex.get();
      block->defaults.push_back(std::move(ex));
    }
  }
  d.lprgelemdescParam = shown ? block->params.data() : nullptr;

  if (liftsRetval(m)) {
    const ParamInfo& r = m.params[m.paramCount - 1];
    HRESULT hr = buildTypeDesc(r, r.indirection - 1, &d.elemdescFunc.tdesc, *block);
    if (FAILED(hr)) return hr;
  } else if (dispatch && m.returnVt == VT_HRESULT && type().kind == TKIND_INTERFACE) {
    // The dispatch view of a dual member without [retval] returns nothing.
    d.elemdescFunc.tdesc.vt = VT_VOID;
  } else {
    d.elemdescFunc.tdesc.vt = m.returnVt;
  }

  std::lock_guard<std::mutex> lock(m_mutex);
  FUNCDESC* raw = &block->desc;
  m_funcs.emplace(raw, std::move(block));
  *ppFuncDesc = raw;
  return S_OK;
}

HRESULT CTypeInfo::GetVarDesc(UINT index, VARDESC** ppVarDesc) {
  if (!ppVarDesc) return E_INVALIDARG;
  *ppVarDesc = nullptr;
  const TypeData& t = type();
  if (t.kind != TKIND_ENUM || index >= t.valueCount) return TYPE_E_ELEMENTNOTFOUND;
  auto block = std::make_unique<VarDescBlock>();
  VariantInit(&block->value);
  V_VT(&block->value) = VT_I4;
  V_I4(&block->value) = t.values[index].value;
  VARDESC& d = block->desc;
  d.memid = static_cast<MEMBERID>(0x40000000 + index);
  d.lpstrSchema = nullptr;
  d.lpvarValue = &block->value;
  d.elemdescVar.tdesc.vt = VT_I4;
  d.wVarFlags = 0;
  d.varkind = VAR_CONST;
  std::lock_guard<std::mutex> lock(m_mutex);
  VARDESC* raw = &block->desc;
  m_vars.emplace(raw, std::move(block));
  *ppVarDesc = raw;
  return S_OK;
}

HRESULT CTypeInfo::GetNames(MEMBERID memid, BSTR* rgBstrNames, UINT cMaxNames, UINT* pcNames) {
  if (!pcNames || (cMaxNames && !rgBstrNames)) return E_INVALIDARG;
  *pcNames = 0;
  const TypeData& t = type();
  std::vector<const OLECHAR*> names;
  if (const MemberInfo* m = funcOf(memid)) {
    names.push_back(m->name);
    for (SHORT i = 0; i < shownParams(*m); ++i) names.push_back(m->params[i].name);
  } else if (t.kind == TKIND_ENUM && memid >= 0x40000000 && memid - 0x40000000 < t.valueCount) {
    names.push_back(t.values[memid - 0x40000000].name);
  } else {
    return TYPE_E_ELEMENTNOTFOUND;
  }
  UINT n = 0;
  for (; n < names.size() && n < cMaxNames; ++n) {
    rgBstrNames[n] = SysAllocString(names[n]);
    if (!rgBstrNames[n]) {
      for (UINT k = 0; k < n; ++k) {
        SysFreeString(rgBstrNames[k]);
        rgBstrNames[k] = nullptr;
      }
      return E_OUTOFMEMORY;
    }
  }
  *pcNames = n;
  return S_OK;
}

HRESULT CTypeInfo::GetRefTypeOfImplType(UINT index, HREFTYPE* pRefType) {
  if (!pRefType) return E_INVALIDARG;
  const TypeData& t = type();
  const USHORT lib = m_lib->id();
  USHORT targetLib = 0;
  USHORT targetIndex = 0;
  switch (kind()) {
    case TKIND_DISPATCH:
      if (index == static_cast<UINT>(-1) && IsDual(t)) {
        *pRefType = MakeRef(lib, m_index, true);
        return S_OK;
      }
      if (index != 0) return TYPE_E_ELEMENTNOTFOUND;
      *pRefType = MakeRef(kLibStdOle, kStdOleIDispatch, false);
      return S_OK;
    case TKIND_INTERFACE:
      if (index != 0 || t.base == kNoRef) return TYPE_E_ELEMENTNOTFOUND;
      ResolveRef(lib, t.base, &targetLib, &targetIndex);
      // The base of a vtable interface is the vtable view of a dual base.
      *pRefType = MakeRef(targetLib, targetIndex, IsDual(Library(targetLib).data().types[targetIndex]));
      return S_OK;
    case TKIND_COCLASS:
      if (index >= t.implCount) return TYPE_E_ELEMENTNOTFOUND;
      *pRefType = MakeRef(lib, static_cast<USHORT>(t.impls[index].ref), false);
      return S_OK;
    default: return TYPE_E_ELEMENTNOTFOUND;
  }
}

HRESULT CTypeInfo::GetImplTypeFlags(UINT index, INT* pImplTypeFlags) {
  if (!pImplTypeFlags) return E_INVALIDARG;
  const TypeData& t = type();
  switch (kind()) {
    case TKIND_COCLASS:
      if (index >= t.implCount) return TYPE_E_ELEMENTNOTFOUND;
      *pImplTypeFlags = t.impls[index].flags;
      return S_OK;
    case TKIND_DISPATCH:
    case TKIND_INTERFACE: {
      HREFTYPE ref = 0;
      if (GetRefTypeOfImplType(index, &ref) != S_OK) return TYPE_E_ELEMENTNOTFOUND;
      *pImplTypeFlags = 0;
      return S_OK;
    }
    default: return TYPE_E_ELEMENTNOTFOUND;
  }
}

HRESULT CTypeInfo::GetIDsOfNames(LPOLESTR* rgszNames, UINT cNames, MEMBERID* pMemId) {
  if (!rgszNames || !pMemId) return E_INVALIDARG;
  if (cNames == 0) return E_INVALIDARG;
  for (UINT i = 0; i < cNames; ++i) pMemId[i] = MEMBERID_NIL;
  const TypeData& t = type();
  const MemberInfo* member = nullptr;
  for (UINT i = 0; i < funcCount() && !member; ++i)
    if (SameName(func(i).name, rgszNames[0])) member = &func(i);
  if (!member) {
    if (t.kind == TKIND_ENUM && cNames == 1) {
      for (USHORT i = 0; i < t.valueCount; ++i) {
        if (SameName(t.values[i].name, rgszNames[0])) {
          pMemId[0] = 0x40000000 + i;
          return S_OK;
        }
      }
    }
    return DISP_E_UNKNOWNNAME;
  }
  pMemId[0] = member->dispid;
  HRESULT hr = S_OK;
  for (UINT n = 1; n < cNames; ++n) {
    for (UINT i = 0; i < funcCount() && pMemId[n] == MEMBERID_NIL; ++i) {
      const MemberInfo& m = func(i);
      if (m.dispid != member->dispid) continue;
      for (SHORT p = 0; p < shownParams(m); ++p) {
        if (SameName(m.params[p].name, rgszNames[n])) {
          pMemId[n] = p;
          break;
        }
      }
    }
    if (pMemId[n] == MEMBERID_NIL) hr = DISP_E_UNKNOWNNAME;
  }
  return hr;
}

HRESULT CTypeInfo::GetDocumentation(MEMBERID memid, BSTR* pBstrName, BSTR* pBstrDocString, DWORD* pdwHelpContext,
                                    BSTR* pBstrHelpFile) {
  const TypeData& t = type();
  const OLECHAR* name = nullptr;
  const OLECHAR* doc = nullptr;
  if (memid == MEMBERID_NIL) {
    name = t.name;
    doc = t.doc;
  } else if (const MemberInfo* m = funcOf(memid)) {
    name = m->name;
    doc = m->doc;
  } else if (t.kind == TKIND_ENUM && memid >= 0x40000000 && memid - 0x40000000 < t.valueCount) {
    name = t.values[memid - 0x40000000].name;
    doc = t.values[memid - 0x40000000].doc;
  } else {
    return TYPE_E_ELEMENTNOTFOUND;
  }
  if (pdwHelpContext) *pdwHelpContext = 0;
  SetString(pBstrHelpFile, nullptr);
  HRESULT hr = SetString(pBstrName, name);
  if (SUCCEEDED(hr)) hr = SetString(pBstrDocString, doc);
  if (FAILED(hr) && pBstrName) {
    SysFreeString(*pBstrName);
    *pBstrName = nullptr;
  }
  return hr;
}

HRESULT CTypeInfo::GetRefTypeInfo(HREFTYPE hRefType, ITypeInfo** ppTInfo) {
  if (!ppTInfo) return E_INVALIDARG;
  *ppTInfo = nullptr;
  const USHORT lib = static_cast<USHORT>(hRefType >> 16);
  const bool vtable = (hRefType & kVtableViewBit) != 0;
  const USHORT index = static_cast<USHORT>(hRefType & 0x7FFF);
  CTypeLib* target = LibraryRegistry::Instance().Find(lib);
  if (!target) return TYPE_E_ELEMENTNOTFOUND;
  if (index >= target->data().typeCount) return TYPE_E_ELEMENTNOTFOUND;
  if (vtable && !IsDual(target->data().types[index])) return TYPE_E_ELEMENTNOTFOUND;
  return target->view(index, vtable, ppTInfo);
}

HRESULT CTypeInfo::GetContainingTypeLib(ITypeLib** ppTLib, UINT* pIndex) {
  if (!ppTLib && !pIndex) return E_INVALIDARG;
  if (ppTLib) {
    *ppTLib = m_lib;
    m_lib->AddRef();
  }
  if (pIndex) *pIndex = m_index;
  return S_OK;
}

void CTypeInfo::ReleaseTypeAttr(TYPEATTR* pTypeAttr) {
  std::lock_guard<std::mutex> lock(m_mutex);
  m_attrs.erase(pTypeAttr);
}

void CTypeInfo::ReleaseFuncDesc(FUNCDESC* pFuncDesc) {
  std::lock_guard<std::mutex> lock(m_mutex);
  m_funcs.erase(pFuncDesc);
}

void CTypeInfo::ReleaseVarDesc(VARDESC* pVarDesc) {
  std::lock_guard<std::mutex> lock(m_mutex);
  auto it = m_vars.find(pVarDesc);
  if (it == m_vars.end()) return;
  VariantClear(&it->second->value);
  m_vars.erase(it);
}

}  // namespace

HRESULT DefaultValueOf(const ParamInfo& p, VARIANT* out) {
  VariantInit(out);
  CComVariant value;
  switch (p.defaultKind) {
    case DefaultKind::None: return S_FALSE;
    case DefaultKind::Integer:
      if (p.defaultInteger >= INT32_MIN && p.defaultInteger <= INT32_MAX) {
        V_VT(&value) = VT_I4;
        V_I4(&value) = static_cast<LONG>(p.defaultInteger);
      } else {
        V_VT(&value) = VT_I8;
        V_I8(&value) = p.defaultInteger;
      }
      break;
    case DefaultKind::Real:
      V_VT(&value) = VT_R8;
      V_R8(&value) = p.defaultReal;
      break;
    case DefaultKind::String:
      value = p.defaultString;
      if (!V_BSTR(&value)) return E_OUTOFMEMORY;
      break;
  }
  // A default stands in the parameter's own type; a VARIANT keeps the
  // natural type of the literal.
  const VARTYPE target = p.vt == VT_INT ? static_cast<VARTYPE>(VT_I4) : p.vt;
  if (p.vt == VT_VARIANT || V_VT(&value) == target) return value.Detach(out);
  HRESULT hr = VariantChangeType(out, &value, 0, target);
  if (FAILED(hr)) return hr;
  if (p.vt == VT_INT) {
    const LONG v = V_I4(out);
    V_VT(out) = VT_INT;
    V_INT(out) = v;
  }
  return S_OK;
}

HRESULT RegisterTypeLibrary(const LibraryData& library) {
  LibraryRegistry::Instance().Add(library);
  return S_OK;
}

const LibraryData* LibraryOfType(const TypeData& type) {
  CTypeLib* lib = LibraryRegistry::Instance().Holding(type);
  return lib ? &lib->data() : nullptr;
}

int IndexOfType(const TypeData& type) {
  const LibraryData* lib = LibraryOfType(type);
  return lib ? static_cast<int>(&type - lib->types) : -1;
}

HRESULT GetTypeInfoOfType(const TypeData& type, ITypeInfo** ppTInfo) {
  if (!ppTInfo) return E_POINTER;
  *ppTInfo = nullptr;
  CTypeLib* lib = LibraryRegistry::Instance().Holding(type);
  if (!lib || lib->id() == kLibStdOle) return TYPE_E_ELEMENTNOTFOUND;
  return lib->view(static_cast<USHORT>(&type - lib->data().types), false, ppTInfo);
}

const ClassIdentity* FindClassIdentity(REFCLSID clsid) {
  const ClassIdentity* found = nullptr;
  LibraryRegistry::Instance().ForEach([&](CTypeLib& lib) {
    const LibraryData& data = lib.data();
    for (USHORT i = 0; i < data.classCount && !found; ++i)
      if (*data.classes[i].clsid == clsid) found = &data.classes[i];
  });
  return found;
}

}  // namespace veltrane::tlb

extern "C" HRESULT LoadRegTypeLib(REFGUID rguid, WORD wVerMajor, WORD wVerMinor, LCID, ITypeLib** pptlib) {
  using namespace veltrane::tlb;
  if (!pptlib) return E_INVALIDARG;
  *pptlib = nullptr;
  auto find = [&] {
    LibraryRegistry::Instance().ForEach([&](CTypeLib& lib) {
      const LibraryData& data = lib.data();
      if (*pptlib || *data.libid != rguid) return;
      if (wVerMajor != data.majorVersion || wVerMinor > data.minorVersion) return;
      lib.AddRef();
      *pptlib = &lib;
    });
    return *pptlib != nullptr;
  };
  if (find()) return S_OK;
  // Loading the registered file registers its library.
  if (LoadRegisteredLibraryFile(rguid, wVerMajor, wVerMinor) && find()) return S_OK;
  return TYPE_E_LIBNOTREGISTERED;
}

namespace veltrane::tlb {

const LibraryData* LibraryOfTypeLib(ITypeLib* lib) {
  const LibraryData* found = nullptr;
  LibraryRegistry::Instance().ForEach([&](CTypeLib& candidate) {
    if (static_cast<ITypeLib*>(&candidate) == lib && candidate.id() != kLibStdOle) found = &candidate.data();
  });
  return found;
}

}  // namespace veltrane::tlb
