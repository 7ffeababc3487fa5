// A binding lists an object's members through ITypeInfo and the library
// through ITypeLib, without the C++ declarations.
#include "fakes.h"

#include <gtest/gtest.h>

#include <map>

using namespace typelib_test;

namespace {

struct FuncView {
  std::u16string name;
  MEMBERID memid;
  INVOKEKIND kind;
  std::vector<std::u16string> params;
  SHORT cParams;
  SHORT cParamsOpt;
  WORD flags;
};

std::vector<FuncView> ListFunctions(ITypeInfo* info) {
  std::vector<FuncView> out;
  TYPEATTR* attr = nullptr;
  EXPECT_EQ(info->GetTypeAttr(&attr), S_OK);
  if (!attr) return out;
  for (UINT i = 0; i < attr->cFuncs; ++i) {
    FUNCDESC* f = nullptr;
    EXPECT_EQ(info->GetFuncDesc(i, &f), S_OK);
    if (!f) continue;
    BSTR names[16] = {};
    UINT count = 0;
    EXPECT_EQ(info->GetNames(f->memid, names, 16, &count), S_OK);
    FuncView v{Str(names[0]), f->memid, f->invkind, {}, f->cParams, f->cParamsOpt, f->wFuncFlags};
    for (UINT n = 1; n < count; ++n) v.params.push_back(Str(names[n]));
    for (UINT n = 0; n < count; ++n) SysFreeString(names[n]);
    out.push_back(v);
    info->ReleaseFuncDesc(f);
  }
  info->ReleaseTypeAttr(attr);
  return out;
}

std::u16string NameOf(ITypeInfo* info) {
  BSTR name = nullptr;
  EXPECT_EQ(info->GetDocumentation(MEMBERID_NIL, &name, nullptr, nullptr, nullptr), S_OK);
  std::u16string s = Str(name);
  SysFreeString(name);
  return s;
}

TYPEKIND KindOf(ITypeInfo* info) {
  TYPEATTR* attr = nullptr;
  EXPECT_EQ(info->GetTypeAttr(&attr), S_OK);
  const TYPEKIND k = attr ? attr->typekind : TKIND_MAX;
  if (attr) info->ReleaseTypeAttr(attr);
  return k;
}

CComPtr<ITypeInfo> Referenced(ITypeInfo* info, HREFTYPE ref) {
  CComPtr<ITypeInfo> out;
  EXPECT_EQ(info->GetRefTypeInfo(ref, &out), S_OK);
  return out;
}

CComPtr<ITypeLib> Library() {
  CComPtr<ITypeLib> lib;
  EXPECT_EQ(LoadRegTypeLib(LIBID_VELTRANELib, 1, 0, LOCALE_USER_DEFAULT, &lib), S_OK);
  return lib;
}

CComPtr<ITypeInfo> OfGuid(REFGUID guid) {
  CComPtr<ITypeInfo> info;
  EXPECT_EQ(Library()->GetTypeInfoOfGuid(guid, &info), S_OK);
  return info;
}

}  // namespace

TEST(TypeInfo, ObjectListsItsMembers) {
  auto e = Make<CFakeRfcError, IRfcError>();
  CComPtr<ITypeInfo> info;
  ASSERT_EQ(e->GetTypeInfo(0, LOCALE_USER_DEFAULT, &info), S_OK);
  TYPEATTR* attr = nullptr;
  ASSERT_EQ(info->GetTypeAttr(&attr), S_OK);
  EXPECT_EQ(attr->typekind, TKIND_DISPATCH);
  EXPECT_EQ(attr->guid, IID_IRfcError);
  EXPECT_TRUE(attr->wTypeFlags & TYPEFLAG_FDUAL);
  EXPECT_EQ(attr->cFuncs, 8);
  EXPECT_EQ(attr->cImplTypes, 1);
  info->ReleaseTypeAttr(attr);
  EXPECT_EQ(NameOf(info), u"IRfcError");

  auto funcs = ListFunctions(info);
  ASSERT_EQ(funcs.size(), 8u);
  EXPECT_EQ(funcs[0].name, u"ERRORGROUP");
  EXPECT_EQ(funcs[0].memid, 1);
  EXPECT_EQ(funcs[0].kind, INVOKE_PROPERTYGET);
  EXPECT_EQ(funcs[0].cParams, 0);  // the [retval] is the result in this view
  EXPECT_EQ(funcs[1].kind, INVOKE_PROPERTYPUT);
  EXPECT_EQ(funcs[1].cParams, 1);
  EXPECT_EQ(funcs[6].name, u"ModuleName");
  EXPECT_EQ(funcs[6].memid, 4);
}

TEST(TypeInfo, ResultTypesReferToLibraryTypes) {
  auto e = Make<CFakeRfcError, IRfcError>();
  CComPtr<ITypeInfo> info;
  ASSERT_EQ(e->GetTypeInfo(0, 0, &info), S_OK);
  FUNCDESC* f = nullptr;
  ASSERT_EQ(info->GetFuncDesc(0, &f), S_OK);
  ASSERT_EQ(f->elemdescFunc.tdesc.vt, VT_USERDEFINED);
  auto group = Referenced(info, f->elemdescFunc.tdesc.hreftype);
  info->ReleaseFuncDesc(f);
  ASSERT_TRUE(group);
  EXPECT_EQ(KindOf(group), TKIND_ENUM);
  EXPECT_EQ(NameOf(group), u"ERRORGROUP");
  TYPEATTR* attr = nullptr;
  ASSERT_EQ(group->GetTypeAttr(&attr), S_OK);
  std::map<std::u16string, LONG> values;
  for (UINT i = 0; i < attr->cVars; ++i) {
    VARDESC* v = nullptr;
    ASSERT_EQ(group->GetVarDesc(i, &v), S_OK);
    EXPECT_EQ(v->varkind, VAR_CONST);
    BSTR name = nullptr;
    UINT n = 0;
    ASSERT_EQ(group->GetNames(v->memid, &name, 1, &n), S_OK);
    values[Str(name)] = V_I4(v->lpvarValue);
    SysFreeString(name);
    group->ReleaseVarDesc(v);
  }
  group->ReleaseTypeAttr(attr);
  EXPECT_EQ(values.size(), 11u);
  EXPECT_EQ(values[u"RFCERROR_PROGRAM"], 101);
  EXPECT_EQ(values[u"RFCERROR_BUSY"], 110);
}

TEST(TypeInfo, ArgumentsDefaultsAndOptionalCount) {
  auto info = OfGuid(IID_IRfcType);
  ASSERT_TRUE(info);
  LPOLESTR names[] = {const_cast<LPOLESTR>(u"definescalar"), const_cast<LPOLESTR>(u"StructOffset")};
  MEMBERID ids[2] = {};
  ASSERT_EQ(info->GetIDsOfNames(names, 2, ids), S_OK);
  EXPECT_EQ(ids[0], 10);
  EXPECT_EQ(ids[1], 4);

  auto funcs = ListFunctions(info);
  const FuncView* define = nullptr;
  for (const auto& f : funcs)
    if (f.name == u"DefineScalar") define = &f;
  ASSERT_NE(define, nullptr);
  EXPECT_EQ(define->params, (std::vector<std::u16string>{u"name", u"type", u"length", u"decimals", u"StructOffset"}));
  EXPECT_EQ(define->cParams, 5);
  EXPECT_EQ(define->cParamsOpt, 3);

  TYPEATTR* attr = nullptr;
  ASSERT_EQ(info->GetTypeAttr(&attr), S_OK);
  for (UINT i = 0; i < attr->cFuncs; ++i) {
    FUNCDESC* f = nullptr;
    ASSERT_EQ(info->GetFuncDesc(i, &f), S_OK);
    if (f->memid == 10) {
      EXPECT_EQ(f->lprgelemdescParam[0].tdesc.vt, VT_BSTR);
      EXPECT_EQ(f->lprgelemdescParam[1].tdesc.vt, VT_USERDEFINED);
      const PARAMDESC& length = f->lprgelemdescParam[2].paramdesc;
      EXPECT_TRUE(length.wParamFlags & PARAMFLAG_FHASDEFAULT);
      ASSERT_NE(length.pparamdescex, nullptr);
      EXPECT_EQ(V_VT(&length.pparamdescex->varDefaultValue), VT_I2);
      EXPECT_EQ(V_I2(&length.pparamdescex->varDefaultValue), 0);
      const PARAMDESC& offset = f->lprgelemdescParam[4].paramdesc;
      EXPECT_EQ(V_VT(&offset.pparamdescex->varDefaultValue), VT_I4);
      EXPECT_EQ(V_I4(&offset.pparamdescex->varDefaultValue), -1);
      EXPECT_EQ(f->elemdescFunc.tdesc.vt, VT_VOID);
    }
    if (f->memid == 9) {  // RowType: a pointer to IRfcType
      ASSERT_EQ(f->elemdescFunc.tdesc.vt, VT_PTR);
      ASSERT_EQ(f->elemdescFunc.tdesc.lptdesc->vt, VT_USERDEFINED);
      EXPECT_EQ(NameOf(Referenced(info, f->elemdescFunc.tdesc.lptdesc->hreftype)), u"IRfcType");
    }
    info->ReleaseFuncDesc(f);
  }
  info->ReleaseTypeAttr(attr);
}

TEST(TypeInfo, DualInterfaceHasAVtableView) {
  auto info = OfGuid(IID_IRfcSession);
  ASSERT_TRUE(info);
  EXPECT_EQ(KindOf(info), TKIND_DISPATCH);
  // The dispatch view holds the members of ISession too.
  auto funcs = ListFunctions(info);
  bool connect = false, ticket = false;
  for (const auto& f : funcs) {
    connect |= f.name == u"Connect" && f.memid == 20;
    ticket |= f.name == u"GetSSO2Ticket" && f.memid == 200;
  }
  EXPECT_TRUE(connect);
  EXPECT_TRUE(ticket);

  HREFTYPE ref = 0;
  ASSERT_EQ(info->GetRefTypeOfImplType(0, &ref), S_OK);
  EXPECT_EQ(NameOf(Referenced(info, ref)), u"IDispatch");
  ASSERT_EQ(info->GetRefTypeOfImplType(static_cast<UINT>(-1), &ref), S_OK);
  auto vtable = Referenced(info, ref);
  EXPECT_EQ(KindOf(vtable), TKIND_INTERFACE);
  auto own = ListFunctions(vtable);
  ASSERT_EQ(own.size(), 2u);
  EXPECT_EQ(own[1].name, u"GetSSO2Ticket");
  EXPECT_EQ(own[1].cParams, 1);  // the [retval] stays a parameter here
  FUNCDESC* f = nullptr;
  ASSERT_EQ(vtable->GetFuncDesc(0, &f), S_OK);
  EXPECT_EQ(f->funckind, FUNC_PUREVIRTUAL);
  EXPECT_EQ(f->oVft, static_cast<SHORT>((7 + 29) * sizeof(void*)));
  vtable->ReleaseFuncDesc(f);

  // Its base is the vtable view of ISession, whose base is IDispatch.
  ASSERT_EQ(vtable->GetRefTypeOfImplType(0, &ref), S_OK);
  auto base = Referenced(vtable, ref);
  EXPECT_EQ(NameOf(base), u"ISession");
  EXPECT_EQ(KindOf(base), TKIND_INTERFACE);
  ASSERT_EQ(base->GetRefTypeOfImplType(0, &ref), S_OK);
  auto dispatch = Referenced(base, ref);
  EXPECT_EQ(NameOf(dispatch), u"IDispatch");
  EXPECT_EQ(ListFunctions(dispatch).size(), 4u);
  EXPECT_EQ(dispatch->GetRefTypeOfImplType(1, &ref), TYPE_E_ELEMENTNOTFOUND);
}

TEST(TypeInfo, LibraryListsEveryType) {
  auto lib = Library();
  ASSERT_TRUE(lib);
  BSTR name = nullptr, doc = nullptr;
  ASSERT_EQ(lib->GetDocumentation(-1, &name, &doc, nullptr, nullptr), S_OK);
  EXPECT_EQ(Str(name), u"VELTRANELib");
  EXPECT_EQ(Str(doc), u"Veltrane 1.0 Type Library");
  SysFreeString(name);
  SysFreeString(doc);

  std::map<std::u16string, TYPEKIND> kinds;
  const UINT count = lib->GetTypeInfoCount();
  for (UINT i = 0; i < count; ++i) {
    CComPtr<ITypeInfo> info;
    ASSERT_EQ(lib->GetTypeInfo(i, &info), S_OK);
    TYPEKIND kind;
    ASSERT_EQ(lib->GetTypeInfoType(i, &kind), S_OK);
    EXPECT_EQ(KindOf(info), kind);
    CComPtr<ITypeLib> containing;
    UINT index = 99;
    ASSERT_EQ(info->GetContainingTypeLib(&containing, &index), S_OK);
    EXPECT_EQ(index, i);
    EXPECT_TRUE(containing.IsEqualObject(lib));
    kinds[NameOf(info)] = kind;
  }
  EXPECT_EQ(kinds[u"ABAPTYPE"], TKIND_ENUM);
  EXPECT_EQ(kinds[u"IConnectorCtrl"], TKIND_DISPATCH);
  EXPECT_EQ(kinds[u"_RfcServerEvents"], TKIND_DISPATCH);
  EXPECT_EQ(kinds[u"NWRfcServer"], TKIND_COCLASS);
  EXPECT_EQ(kinds.size(), count);
  CComPtr<ITypeInfo> none;
  EXPECT_EQ(lib->GetTypeInfo(count, &none), TYPE_E_ELEMENTNOTFOUND);
  EXPECT_EQ(lib->GetTypeInfoOfGuid(GUID_NULL, &none), TYPE_E_ELEMENTNOTFOUND);
}

TEST(TypeInfo, CoclassNamesItsInterfacesAndEvents) {
  auto session = OfGuid(CLSID_RfcSession);
  ASSERT_TRUE(session);
  TYPEATTR* attr = nullptr;
  ASSERT_EQ(session->GetTypeAttr(&attr), S_OK);
  EXPECT_EQ(attr->typekind, TKIND_COCLASS);
  EXPECT_TRUE(attr->wTypeFlags & TYPEFLAG_FCANCREATE);
  ASSERT_EQ(attr->cImplTypes, 2);
  session->ReleaseTypeAttr(attr);
  INT flags = 0;
  HREFTYPE ref = 0;
  ASSERT_EQ(session->GetImplTypeFlags(1, &flags), S_OK);
  EXPECT_EQ(flags, IMPLTYPEFLAG_FDEFAULT | IMPLTYPEFLAG_FSOURCE);
  ASSERT_EQ(session->GetRefTypeOfImplType(1, &ref), S_OK);
  auto events = Referenced(session, ref);
  EXPECT_EQ(NameOf(events), u"_SessionEvents");
  auto funcs = ListFunctions(events);
  ASSERT_EQ(funcs.size(), 1u);
  EXPECT_EQ(funcs[0].name, u"CallFinished");
  EXPECT_EQ(funcs[0].memid, 1);
  EXPECT_EQ(funcs[0].cParams, 0);

  auto server = OfGuid(CLSID_NWRfcServer);
  ASSERT_EQ(server->GetRefTypeOfImplType(1, &ref), S_OK);
  auto serverEvents = ListFunctions(Referenced(server, ref));
  ASSERT_EQ(serverEvents.size(), 7u);
  EXPECT_EQ(serverEvents[0].name, u"IncomingCall");
  EXPECT_EQ(serverEvents[0].params, std::vector<std::u16string>{u"fn"});
  EXPECT_EQ(serverEvents[6].name, u"TransactionConfirm");
  EXPECT_EQ(serverEvents[6].memid, 7);

  auto field = OfGuid(CLSID_RfcField);
  ASSERT_EQ(field->GetTypeAttr(&attr), S_OK);
  EXPECT_FALSE(attr->wTypeFlags & TYPEFLAG_FCANCREATE);
  field->ReleaseTypeAttr(attr);
  auto control = OfGuid(CLSID_ConnectorCtrl);
  ASSERT_EQ(control->GetTypeAttr(&attr), S_OK);
  EXPECT_TRUE(attr->wTypeFlags & TYPEFLAG_FCONTROL);
  control->ReleaseTypeAttr(attr);
}

TEST(TypeInfo, RestrictedMembersAreMarked) {
  auto list = Make<CFakeStringList, IStringList>();
  CComPtr<ITypeInfo> info;
  ASSERT_EQ(list->GetTypeInfo(0, 0, &info), S_OK);
  for (const auto& f : ListFunctions(info)) {
    if (f.memid == DISPID_NEWENUM) {
      EXPECT_EQ(f.name, u"_NewEnum");
      EXPECT_TRUE(f.flags & FUNCFLAG_FRESTRICTED);
    } else {
      EXPECT_FALSE(f.flags & FUNCFLAG_FRESTRICTED) << f.memid;
    }
  }
  BSTR doc = nullptr;
  ASSERT_EQ(info->GetDocumentation(5, nullptr, &doc, nullptr, nullptr), S_OK);
  EXPECT_EQ(Str(doc), u"Position of an entry, or -1");
  SysFreeString(doc);
  EXPECT_EQ(info->GetDocumentation(4711, nullptr, &doc, nullptr, nullptr), TYPE_E_ELEMENTNOTFOUND);
}

TEST(TypeInfo, LoadRegTypeLibChecksIdAndVersion) {
  CComPtr<ITypeLib> lib;
  EXPECT_EQ(LoadRegTypeLib(LIBID_VELTRANELib, 2, 0, 0, &lib), TYPE_E_LIBNOTREGISTERED);
  EXPECT_EQ(LoadRegTypeLib(LIBID_VELTRANELib, 1, 1, 0, &lib), TYPE_E_LIBNOTREGISTERED);
  EXPECT_EQ(LoadRegTypeLib(IID_IRfcType, 1, 0, 0, &lib), TYPE_E_LIBNOTREGISTERED);
  EXPECT_FALSE(lib);
  EXPECT_EQ(LoadRegTypeLib(LIBID_VELTRANELib, 1, 0, 0, nullptr), E_INVALIDARG);
}
