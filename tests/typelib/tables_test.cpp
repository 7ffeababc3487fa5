// The generated declarations and tables against the interface tables of the
// design: DISPIDs, kinds and slot order of sample interfaces, enumeration
// values, class and library identifiers.
#include "platform/dispatch_impl.h"
#include "platform/objbase.h"
#include "veltrane_tlb.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

using veltrane::tlb::MemberInfo;
using veltrane::tlb::TypeData;

namespace {

struct Row {
  const char16_t* name;
  DISPID dispid;
  INVOKEKIND kind;
};

constexpr INVOKEKIND GET = INVOKE_PROPERTYGET;
constexpr INVOKEKIND PUT = INVOKE_PROPERTYPUT;
constexpr INVOKEKIND FUNC = INVOKE_FUNC;

// Own members of the interface, in slot order.
void ExpectMembers(const TypeData& t, const std::vector<Row>& rows) {
  ASSERT_EQ(t.memberCount, rows.size()) << std::u16string(t.name).size();
  for (size_t i = 0; i < rows.size(); ++i) {
    const MemberInfo& m = t.members[i];
    EXPECT_EQ(std::u16string(m.name), std::u16string(rows[i].name)) << "slot " << i;
    EXPECT_EQ(m.dispid, rows[i].dispid) << "slot " << i;
    EXPECT_EQ(m.invkind, rows[i].kind) << "slot " << i;
    EXPECT_EQ(m.slot, t.firstSlot + static_cast<SHORT>(i));
  }
}

std::vector<std::u16string> ParamNames(const MemberInfo& m) {
  std::vector<std::u16string> out;
  for (SHORT i = 0; i < m.paramCount; ++i) out.emplace_back(m.params[i].name);
  return out;
}

// The vtable slot of a virtual member function, as the Itanium C++ ABI
// encodes it in a pointer to member: offset in the vtable plus one.
template <class F>
long SlotOf(F f) {
  static_assert(sizeof(F) == 2 * sizeof(void*));
  uintptr_t raw[2];
  std::memcpy(raw, &f, sizeof raw);
  EXPECT_EQ(raw[0] & 1, 1u) << "not a virtual function";
  return static_cast<long>((raw[0] - 1) / sizeof(void*));
}

}  // namespace

TEST(TypeLibTables, IRfcErrorMatchesItsTable) {
  ExpectMembers(veltrane_dispatch_table<IRfcError>::get(), {{u"ERRORGROUP", 1, GET},
                                                            {u"ERRORGROUP", 1, PUT},
                                                            {u"ErrorGroupTxt", 2, GET},
                                                            {u"ErrorGroupTxt", 2, PUT},
                                                            {u"Message", 3, GET},
                                                            {u"Message", 3, PUT},
                                                            {u"ModuleName", 4, GET},
                                                            {u"ModuleName", 4, PUT}});
  // The C++ declaration has the same slots.
  EXPECT_EQ(SlotOf(&IRfcError::get_ERRORGROUP), 7);
  EXPECT_EQ(SlotOf(&IRfcError::put_ERRORGROUP), 8);
  EXPECT_EQ(SlotOf(&IRfcError::get_Message), 11);
  EXPECT_EQ(SlotOf(&IRfcError::put_ModuleName), 14);
}

TEST(TypeLibTables, IConnectorCtrlMatchesItsTable) {
  ExpectMembers(veltrane_dispatch_table<IConnectorCtrl>::get(), {{u"CreateRfcSession", 1, FUNC},
                                                                 {u"CreateSOAPSession", 2, FUNC},
                                                                 {u"CreateRfcServer", 3, FUNC},
                                                                 {u"CreateNWRfcSession", 4, FUNC},
                                                                 {u"CreateNWRfcServer", 5, FUNC}});
  EXPECT_EQ(SlotOf(&IConnectorCtrl::CreateNWRfcServer), 11);
}

TEST(TypeLibTables, IRfcTypeMatchesItsTable) {
  const TypeData& t = veltrane_dispatch_table<IRfcType>::get();
  ExpectMembers(t, {{u"name", 1, GET},
                    {u"Kind", 2, GET},
                    {u"ScalarType", 3, GET},
                    {u"ScalarType", 3, PUT},
                    {u"ScalarLength", 4, GET},
                    {u"ScalarLength", 4, PUT},
                    {u"ScalarDecimals", 5, GET},
                    {u"ScalarDecimals", 5, PUT},
                    {u"StructOffset", 6, GET},
                    {u"StructOffset", 6, PUT},
                    {u"StructLength", 7, GET},
                    {u"StructLength", 7, PUT},
                    {u"StructFields", 8, GET},
                    {u"RowType", 9, GET},
                    {u"DefineScalar", 10, FUNC},
                    {u"DefineStruct", 11, FUNC},
                    {u"DefineTable", 12, FUNC},
                    {u"AddComplexStructField", 13, FUNC},
                    {u"AddScalarStructField", 14, FUNC},
                    {u"Tag", 20, GET},
                    {u"Tag", 20, PUT},
                    {u"structOffsetC1", 21, GET},
                    {u"structOffsetC1", 21, PUT},
                    {u"structLengthC1", 22, GET},
                    {u"structLengthC1", 22, PUT},
                    {u"GetInternalObj", 23, FUNC}});
  const MemberInfo& define = t.members[14];
  EXPECT_EQ(ParamNames(define),
            (std::vector<std::u16string>{u"name", u"type", u"length", u"decimals", u"StructOffset"}));
  EXPECT_EQ(define.params[2].defaultInteger, 0);
  EXPECT_EQ(define.params[4].defaultInteger, -1);
  EXPECT_TRUE(define.params[4].flags & PARAMFLAG_FHASDEFAULT);
  EXPECT_FALSE(define.params[1].flags & PARAMFLAG_FOPT);
  const MemberInfo& add = t.members[18];
  EXPECT_EQ(ParamNames(add), (std::vector<std::u16string>{u"name", u"type", u"length", u"decimals", u"StructOffset",
                                                          u"structOffsetC1", u"StructLength", u"structLengthC1"}));
  EXPECT_EQ(SlotOf(&IRfcType::get_name), 7);
  EXPECT_EQ(SlotOf(&IRfcType::DefineScalar), 21);
  EXPECT_EQ(SlotOf(&IRfcType::GetInternalObj), 32);
}

TEST(TypeLibTables, IRfcFieldMatchesItsTable) {
  ExpectMembers(veltrane_dispatch_table<IRfcField>::get(), {{u"name", 1, GET},
                                                            {u"name", 1, PUT},
                                                            {u"RfcType", 2, GET},
                                                            {u"RfcType", 2, PUT},
                                                            {u"value", 0, GET},
                                                            {u"value", 0, PUT},
                                                            {u"Fields", 3, GET},
                                                            {u"Rows", 4, GET},
                                                            {u"get_InternalType", 6, FUNC},
                                                            {u"get_IsEmpty", 10, FUNC}});
  EXPECT_EQ(SlotOf(&IRfcField::get_IsEmpty), 16);
}

TEST(TypeLibTables, IFunctionCallMatchesItsTable) {
  const TypeData& t = veltrane_dispatch_table<IFunctionCall>::get();
  ExpectMembers(t, {{u"Function", 1, GET},
                    {u"Function", 1, PUT},
                    {u"Importing", 2, GET},
                    {u"Exporting", 3, GET},
                    {u"Changing", 4, GET},
                    {u"Tables", 5, GET},
                    {u"Documentation", 6, GET},
                    {u"Documentation", 6, PUT},
                    {u"RaiseException", 20, FUNC},
                    {u"GetException", 21, FUNC},
                    {u"ToXML", 23, FUNC},
                    {u"FromXML", 24, FUNC}});
  const MemberInfo& raise = t.members[8];
  EXPECT_EQ(raise.params[1].defaultKind, veltrane::tlb::DefaultKind::String);
  EXPECT_EQ(std::u16string(raise.params[1].defaultString), u"");
  const MemberInfo& get = t.members[9];
  EXPECT_EQ(ParamNames(get), (std::vector<std::u16string>{u"exception", u"Message"}));
  EXPECT_EQ(get.params[0].flags, PARAMFLAG_FOUT);
}

TEST(TypeLibTables, ISessionMatchesItsTable) {
  ExpectMembers(veltrane_dispatch_table<ISession>::get(), {{u"SystemID", 1, GET},
                                                           {u"SystemID", 1, PUT},
                                                           {u"LogonData", 2, GET},
                                                           {u"ErrorInfo", 3, GET},
                                                           {u"IsConnected", 4, GET},
                                                           {u"Error", 5, GET},
                                                           {u"CallActive", 6, GET},
                                                           {u"SessionType", 10, GET},
                                                           {u"Option", 11, GET},
                                                           {u"Option", 11, PUT},
                                                           {u"TypeCache", 12, GET},
                                                           {u"TypeCache", 12, PUT},
                                                           {u"Connect", 20, FUNC},
                                                           {u"Disconnect", 21, FUNC},
                                                           {u"CallFunction", 22, FUNC},
                                                           {u"AbortCall", 23, FUNC},
                                                           {u"DecodeInternalError", 24, FUNC},
                                                           {u"ImportType", 25, FUNC},
                                                           {u"CheckPasswordExpired", 26, FUNC},
                                                           {u"ChangePassword", 27, FUNC},
                                                           {u"CheckUnicodeSupport", 28, FUNC},
                                                           {u"CreateCall", 30, FUNC},
                                                           {u"CreateType", 31, FUNC},
                                                           {u"About", 41, FUNC},
                                                           {u"ImportCall", 50, FUNC},
                                                           {u"GetTableReader", 51, FUNC},
                                                           {u"CreateTransID", 52, FUNC},
                                                           {u"ConfirmTransID", 53, FUNC},
                                                           {u"CallTRFCFunction", 54, FUNC}});
  const MemberInfo* call = veltrane::dispatch::FindMember(veltrane_dispatch_table<ISession>::get(), 22, FUNC);
  ASSERT_NE(call, nullptr);
  EXPECT_EQ(call->params[1].defaultInteger, -1);
  EXPECT_TRUE(call->params[1].flags & PARAMFLAG_FOPT);
}

TEST(TypeLibTables, SessionInterfacesExtendISession) {
  const TypeData& base = veltrane_dispatch_table<ISession>::get();
  const TypeData& rfc = veltrane_dispatch_table<IRfcSession>::get();
  const TypeData& soap = veltrane_dispatch_table<ISoapSession>::get();
  ExpectMembers(rfc, {{u"RfcSystemData", 100, GET}, {u"GetSSO2Ticket", 200, FUNC}});
  ExpectMembers(soap, {{u"HttpSystemData", 100, GET}});
  EXPECT_EQ(rfc.firstSlot, base.firstSlot + base.memberCount);
  EXPECT_EQ(rfc.dispatchCount, base.memberCount + 2);
  EXPECT_EQ(rfc.dispatchMembers[0], &base.members[0]);
  EXPECT_NE(veltrane::dispatch::FindMember(soap, 20, FUNC), nullptr);  // Connect, inherited
  EXPECT_EQ(SlotOf(&IRfcSession::GetSSO2Ticket), rfc.firstSlot + 1);
  EXPECT_TRUE((std::is_same_v<veltrane_base_of<IRfcSession>::type, ISession>));
  EXPECT_TRUE((std::is_same_v<veltrane_base_of<ISession>::type, IDispatch>));
}

TEST(TypeLibTables, CollectionsHaveTheirDefaultMemberAndEnumerator) {
  for (const TypeData* t :
       {&veltrane_dispatch_table<IRfcTypes>::get(), &veltrane_dispatch_table<IRfcFields>::get(),
        &veltrane_dispatch_table<IRfcRows>::get(), &veltrane_dispatch_table<IRfcParameters>::get(),
        &veltrane_dispatch_table<IFunctionCalls>::get(), &veltrane_dispatch_table<IStringList>::get(),
        &veltrane_dispatch_table<IBSPParameters>::get()}) {
    const MemberInfo* item = veltrane::dispatch::FindMember(*t, DISPID_VALUE, INVOKE_PROPERTYGET);
    ASSERT_NE(item, nullptr) << std::u16string(t->name).size();
    EXPECT_EQ(std::u16string(item->name), u"Item");
    const MemberInfo* e = veltrane::dispatch::FindMember(*t, DISPID_NEWENUM, INVOKE_PROPERTYGET);
    ASSERT_NE(e, nullptr);
    EXPECT_EQ(std::u16string(e->name), u"_NewEnum");
    EXPECT_TRUE(e->funcFlags & FUNCFLAG_FRESTRICTED);
  }
}

TEST(TypeLibTables, EnumerationsHaveTheirNumbers) {
  EXPECT_EQ(TYPE_CHAR, 0);
  EXPECT_EQ(TYPE_DATE, 1);
  EXPECT_EQ(TYPE_BCD, 2);
  EXPECT_EQ(TYPE_TIME, 3);
  EXPECT_EQ(TYPE_BYTE, 4);
  EXPECT_EQ(TYPE_ITAB, 5);
  EXPECT_EQ(TYPE_NUM, 6);
  EXPECT_EQ(TYPE_FLOAT, 7);
  EXPECT_EQ(TYPE_INT, 8);
  EXPECT_EQ(TYPE_INT2, 9);
  EXPECT_EQ(TYPE_INT1, 10);
  EXPECT_EQ(TYPE_STRUCTURE, 17);
  EXPECT_EQ(TYPE_STRING, 29);
  EXPECT_EQ(TYPE_XSTRING, 30);
  EXPECT_EQ(RFCTYPEKIND_UNDEFINED, 0);
  EXPECT_EQ(RFCTYPEKIND_SCALAR, 1);
  EXPECT_EQ(RFCTYPEKIND_STRUCT, 2);
  EXPECT_EQ(RFCTYPEKIND_TABLE, 3);
  EXPECT_EQ(RFCTYPEKIND_COMPLEX_STRUCT, 4);
  EXPECT_EQ(RFCERROR_NO_ERROR, 0);
  EXPECT_EQ(RFCERROR_PROGRAM, 101);
  EXPECT_EQ(RFCERROR_COMMUNICATION, 102);
  EXPECT_EQ(RFCERROR_LOGON_FAILURE, 103);
  EXPECT_EQ(RFCERROR_SYSTEM_FAILURE, 104);
  EXPECT_EQ(RFCERROR_APPLICATION_EXCEPTION, 105);
  EXPECT_EQ(RFCERROR_RESOURCE, 106);
  EXPECT_EQ(RFCERROR_PROTOCOL, 107);
  EXPECT_EQ(RFCERROR_INTERNAL, 108);
  EXPECT_EQ(RFCERROR_CANCELLED, 109);
  EXPECT_EQ(RFCERROR_BUSY, 110);
  // 32-bit, and -1 ("unset") is a value of ABAPTYPE.
  EXPECT_EQ(sizeof(ABAPTYPE), 4u);
  const ABAPTYPE unset = static_cast<ABAPTYPE>(-1);
  EXPECT_EQ(static_cast<LONG>(unset), -1);
}

namespace {

std::u16string GuidText(REFGUID g) {
  OLECHAR buf[CHARS_IN_GUID];
  EXPECT_EQ(StringFromGUID2(g, buf, CHARS_IN_GUID), CHARS_IN_GUID);
  return buf;
}

}  // namespace

TEST(TypeLibTables, ObjectMapAndLibraryIdentifiers) {
  EXPECT_EQ(GuidText(CLSID_RfcSession), u"{9A07C80C-494E-4594-AFEB-7FB489423047}");
  EXPECT_EQ(GuidText(CLSID_SoapSession), u"{334E20D8-8C80-450B-ACA1-B3A2CC44DBCD}");
  EXPECT_EQ(GuidText(CLSID_BSPApplication), u"{86A5EDB1-49AE-4155-A051-A2094593227C}");
  EXPECT_EQ(GuidText(CLSID_RfcServer), u"{C47C2C19-D930-4ACE-B5B1-A6DA857A8CA6}");
  EXPECT_EQ(GuidText(CLSID_NWRfcSession), u"{AD6F824D-BAC7-464B-A52D-D83F62CB9DB4}");
  EXPECT_EQ(GuidText(CLSID_NWRfcServer), u"{35D519D6-0106-4B5D-BA15-923F2D87FEF1}");
  EXPECT_EQ(GuidText(CLSID_ConnectorCtrl), u"{FC07F669-BFFE-4ABC-93BD-507E549508DE}");
  EXPECT_EQ(GuidText(LIBID_VELTRANELib), u"{FBDBDBA5-518B-4146-A52F-455C0E03492D}");
  EXPECT_EQ(GuidText(APPID_VELTRANELib), u"{6A83179A-1485-4582-9205-F55C2537D558}");
  EXPECT_EQ(VELTRANELib_MAJOR, 1);
  EXPECT_EQ(VELTRANELib_MINOR, 0);
  EXPECT_EQ(__uuidof(IRfcType), IID_IRfcType);
  EXPECT_EQ(__uuidof(_SessionEvents), DIID__SessionEvents);
}

TEST(TypeLibTables, ClassIdentities) {
  using veltrane::tlb::ClassIdentity;
  using veltrane::tlb::FindClassIdentity;
  const auto& lib = veltrane::tlb::VeltraneLibrary();
  int activatable = 0;
  std::vector<std::u16string> seen;
  for (USHORT i = 0; i < lib.classCount; ++i) {
    const ClassIdentity& c = lib.classes[i];
    if (c.activatable) ++activatable;
    EXPECT_EQ(std::u16string(c.progId), u"Veltrane." + std::u16string(c.name) + u".1");
    EXPECT_EQ(std::u16string(c.versionIndependentProgId), u"Veltrane." + std::u16string(c.name));
    for (const auto& other : seen) EXPECT_NE(GuidText(*c.clsid), other);
    seen.push_back(GuidText(*c.clsid));
  }
  EXPECT_EQ(activatable, 7);
  for (const CLSID* clsid : {&CLSID_RfcSession, &CLSID_SoapSession, &CLSID_BSPApplication, &CLSID_RfcServer,
                             &CLSID_NWRfcSession, &CLSID_NWRfcServer, &CLSID_ConnectorCtrl}) {
    const ClassIdentity* c = FindClassIdentity(*clsid);
    ASSERT_NE(c, nullptr);
    EXPECT_TRUE(c->creatable);
    EXPECT_TRUE(c->activatable);
  }
  const ClassIdentity* type = FindClassIdentity(CLSID_RfcType);
  ASSERT_NE(type, nullptr);
  EXPECT_TRUE(type->creatable);
  EXPECT_FALSE(type->activatable);
  const ClassIdentity* field = FindClassIdentity(CLSID_RfcField);
  ASSERT_NE(field, nullptr);
  EXPECT_FALSE(field->creatable);
  EXPECT_EQ(std::u16string(field->progId), u"Veltrane.RfcField.1");
  EXPECT_EQ(std::u16string(FindClassIdentity(CLSID_RfcSession)->description), u"RfcSession Class");
  EXPECT_EQ(std::u16string(FindClassIdentity(CLSID_ConnectorCtrl)->description), u"Veltrane Control");
  EXPECT_TRUE(FindClassIdentity(CLSID_ConnectorCtrl)->control);
  const ClassIdentity* nw = FindClassIdentity(CLSID_NWRfcSession);
  EXPECT_EQ(std::u16string(nw->clsidProgId), u"Veltrane.NwRfcSession.1");
  EXPECT_EQ(std::u16string(nw->clsidVersionIndependentProgId), u"Veltrane.NwRfcSession");
  EXPECT_EQ(std::u16string(PROGID_NWRfcSession), u"Veltrane.NWRfcSession.1");
  EXPECT_EQ(FindClassIdentity(IID_IRfcType), nullptr);
}

TEST(TypeLibTables, ClassIdentitiesAnswerProgIdQueries) {
  ASSERT_EQ(veltrane::tlb::RegisterClassIdentities(veltrane::tlb::VeltraneLibrary()), S_OK);
  LPOLESTR progId = nullptr;
  ASSERT_EQ(ProgIDFromCLSID(CLSID_RfcType, &progId), S_OK);
  EXPECT_EQ(std::u16string(progId), u"Veltrane.RfcType.1");
  CoTaskMemFree(progId);
  CLSID clsid{};
  ASSERT_EQ(CLSIDFromProgID(u"Veltrane.TableReader", &clsid), S_OK);
  EXPECT_EQ(clsid, CLSID_TableReader);
  ASSERT_EQ(CLSIDFromProgID(u"Veltrane.NWRfcSession.1", &clsid), S_OK);
  EXPECT_EQ(clsid, CLSID_NWRfcSession);
  // Without a factory, nothing can be created yet.
  EXPECT_EQ(veltrane::tlb::RegisterClassIdentities(veltrane::tlb::VeltraneLibrary()), S_OK);
}
