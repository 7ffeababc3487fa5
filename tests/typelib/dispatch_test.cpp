// Late-bound calls through the generated dispatch tables reach the same
// early-bound methods, with the argument rules of Automation.
#include "fakes.h"

#include <gtest/gtest.h>

#include <initializer_list>

using namespace typelib_test;

namespace {

// Invokes with the arguments in declaration order; DISPPARAMS gets them in
// reverse. `named` DISPIDs name the last arguments given.
HRESULT Call(IDispatch* d, DISPID id, WORD flags, std::vector<CComVariant> args, VARIANT* result = nullptr,
             std::vector<DISPID> named = {}, UINT* argErr = nullptr, EXCEPINFO* info = nullptr) {
  std::vector<VARIANT> reversed(args.rbegin(), args.rend());
  DISPPARAMS dp{reversed.empty() ? nullptr : reversed.data(), named.empty() ? nullptr : named.data(),
                static_cast<UINT>(reversed.size()), static_cast<UINT>(named.size())};
  // Named arguments stand first in rgvarg, in the order of their DISPIDs.
  return d->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, flags, &dp, result, info, argErr);
}

HRESULT Put(IDispatch* d, DISPID id, CComVariant value, EXCEPINFO* info = nullptr) {
  VARIANT arg = value;
  DISPID named = DISPID_PROPERTYPUT;
  DISPPARAMS dp{&arg, &named, 1, 1};
  return d->Invoke(id, IID_NULL, LOCALE_USER_DEFAULT, DISPATCH_PROPERTYPUT, &dp, nullptr, info, nullptr);
}

CComVariant Missing() {
  CComVariant v;
  V_VT(&v) = VT_ERROR;
  V_ERROR(&v) = DISP_E_PARAMNOTFOUND;
  return v;
}

DISPID IdOf(IDispatch* d, const char16_t* name) {
  LPOLESTR names[] = {const_cast<LPOLESTR>(name)};
  DISPID id = 12345;
  EXPECT_EQ(d->GetIDsOfNames(IID_NULL, names, 1, LOCALE_USER_DEFAULT, &id), S_OK);
  return id;
}

std::u16string BstrOf(const VARIANT& v) {
  EXPECT_EQ(V_VT(&v), VT_BSTR);
  return V_VT(&v) == VT_BSTR ? Str(V_BSTR(&v)) : std::u16string();
}

}  // namespace

TEST(Dispatch, GetIDsOfNamesIgnoresCase) {
  auto e = Make<CFakeRfcError, IRfcError>();
  EXPECT_EQ(IdOf(e, u"ERRORGROUP"), 1);
  EXPECT_EQ(IdOf(e, u"errorgrouptxt"), 2);
  EXPECT_EQ(IdOf(e, u"MESSAGE"), 3);
  EXPECT_EQ(IdOf(e, u"moduleName"), 4);

  LPOLESTR unknown[] = {const_cast<LPOLESTR>(u"Nothing")};
  DISPID id = 0;
  EXPECT_EQ(e->GetIDsOfNames(IID_NULL, unknown, 1, 0, &id), DISP_E_UNKNOWNNAME);
  EXPECT_EQ(id, DISPID_UNKNOWN);
  EXPECT_EQ(e->GetIDsOfNames(IID_IRfcError, unknown, 1, 0, &id), DISP_E_UNKNOWNINTERFACE);
}

TEST(Dispatch, GetIDsOfNamesNamesParameters) {
  auto call = Make<CFakeFunctionCall, IFunctionCall>();
  LPOLESTR names[] = {const_cast<LPOLESTR>(u"raiseexception"), const_cast<LPOLESTR>(u"MESSAGE"),
                      const_cast<LPOLESTR>(u"Exception")};
  DISPID ids[3] = {};
  ASSERT_EQ(call->GetIDsOfNames(IID_NULL, names, 3, 0, ids), S_OK);
  EXPECT_EQ(ids[0], 20);
  EXPECT_EQ(ids[1], 1);
  EXPECT_EQ(ids[2], 0);
  LPOLESTR bad[] = {const_cast<LPOLESTR>(u"RaiseException"), const_cast<LPOLESTR>(u"nope")};
  EXPECT_EQ(call->GetIDsOfNames(IID_NULL, bad, 2, 0, ids), DISP_E_UNKNOWNNAME);
  EXPECT_EQ(ids[0], 20);
  EXPECT_EQ(ids[1], DISPID_UNKNOWN);
}

TEST(Dispatch, LateAndEarlyBoundReachTheSameProperty) {
  CFakeRfcError* obj = nullptr;
  ASSERT_EQ(CFakeRfcError::CreateInstance(&obj), S_OK);
  CComPtr<IRfcError> e;
  e.Attach(obj);

  ASSERT_EQ(Put(e, 3, CComVariant(u"late")), S_OK);
  CComBSTR early;
  ASSERT_EQ(e->get_Message(&early), S_OK);
  EXPECT_EQ(early, u"late");

  ASSERT_EQ(e->put_ModuleName(CComBSTR(u"early")), S_OK);
  CComVariant result;
  ASSERT_EQ(Call(e, 4, DISPATCH_PROPERTYGET, {}, &result), S_OK);
  EXPECT_EQ(BstrOf(result), u"early");

  // Basic sends a get as method and property get at once.
  result.Clear();
  ASSERT_EQ(Call(e, 3, DISPATCH_METHOD | DISPATCH_PROPERTYGET, {}, &result), S_OK);
  EXPECT_EQ(BstrOf(result), u"late");
}

TEST(Dispatch, EnumerationArgumentsAreCoerced) {
  CFakeRfcError* obj = nullptr;
  ASSERT_EQ(CFakeRfcError::CreateInstance(&obj), S_OK);
  CComPtr<IRfcError> e;
  e.Attach(obj);
  ASSERT_EQ(Put(e, 1, CComVariant(LONG(105))), S_OK);
  EXPECT_EQ(obj->group, RFCERROR_APPLICATION_EXCEPTION);
  ASSERT_EQ(Put(e, 1, CComVariant(u"102")), S_OK);
  EXPECT_EQ(obj->group, RFCERROR_COMMUNICATION);
  CComVariant result;
  ASSERT_EQ(Call(e, 1, DISPATCH_PROPERTYGET, {}, &result), S_OK);
  EXPECT_EQ(V_VT(&result), VT_I4);
  EXPECT_EQ(V_I4(&result), 102);
}

TEST(Dispatch, WrongKindsAndUnknownMembers) {
  auto e = Make<CFakeRfcError, IRfcError>();
  CComVariant result;
  EXPECT_EQ(Call(e, 3, DISPATCH_METHOD, {}, &result), DISP_E_MEMBERNOTFOUND);
  EXPECT_EQ(Call(e, 99, DISPATCH_PROPERTYGET, {}, &result), DISP_E_MEMBERNOTFOUND);
  EXPECT_EQ(Call(e, DISPID_VALUE, DISPATCH_PROPERTYGET, {}, &result), DISP_E_MEMBERNOTFOUND);
  auto call = Make<CFakeFunctionCall, IFunctionCall>();
  EXPECT_EQ(Put(call, 20, CComVariant(u"x")), DISP_E_MEMBERNOTFOUND);
  EXPECT_EQ(Call(call, 23, DISPATCH_PROPERTYGET, {}, &result), DISP_E_MEMBERNOTFOUND);
  VARIANT arg;
  VariantInit(&arg);
  DISPPARAMS dp{&arg, nullptr, 1, 0};
  EXPECT_EQ(e->Invoke(3, IID_IRfcError, 0, DISPATCH_PROPERTYGET, &dp, &result, nullptr, nullptr),
            DISP_E_UNKNOWNINTERFACE);
}

TEST(Dispatch, ParameterCounts) {
  auto e = Make<CFakeRfcError, IRfcError>();
  CComVariant result;
  EXPECT_EQ(Call(e, 3, DISPATCH_PROPERTYGET, {CComVariant(LONG(1))}, &result), DISP_E_BADPARAMCOUNT);
  EXPECT_EQ(Call(e, 3, DISPATCH_PROPERTYPUT, {}), DISP_E_BADPARAMCOUNT);

  auto call = Make<CFakeFunctionCall, IFunctionCall>();
  EXPECT_EQ(Call(call, 24, DISPATCH_METHOD, {}), DISP_E_BADPARAMCOUNT);
  EXPECT_EQ(Call(call, 24, DISPATCH_METHOD, {CComVariant(u"a"), CComVariant(u"b")}), DISP_E_BADPARAMCOUNT);
  UINT argErr = 77;
  EXPECT_EQ(Call(call, 24, DISPATCH_METHOD, {Missing()}, nullptr, {}, &argErr), DISP_E_PARAMNOTOPTIONAL);
  EXPECT_EQ(argErr, 0u);
  // A required parameter left out beside a named one.
  EXPECT_EQ(Call(call, 20, DISPATCH_METHOD, {CComVariant(u"msg")}, nullptr, {1}), DISP_E_PARAMNOTOPTIONAL);
  // Named arguments where the member takes none, and unknown parameter ids.
  EXPECT_EQ(Call(call, 23, DISPATCH_METHOD, {CComVariant(u"x")}, &result, {0}), DISP_E_NONAMEDARGS);
  argErr = 77;
  EXPECT_EQ(Call(call, 20, DISPATCH_METHOD, {CComVariant(u"x")}, nullptr, {7}, &argErr), DISP_E_PARAMNOTFOUND);
  EXPECT_EQ(argErr, 0u);
}

TEST(Dispatch, OptionalArgumentsTakeTheirDefaults) {
  CFakeFunctionCall* obj = nullptr;
  ASSERT_EQ(CFakeFunctionCall::CreateInstance(&obj), S_OK);
  CComPtr<IFunctionCall> call;
  call.Attach(obj);
  obj->message = u"old";
  ASSERT_EQ(Call(call, 20, DISPATCH_METHOD, {CComVariant(u"NOT_FOUND")}), S_OK);
  EXPECT_EQ(obj->exception, u"NOT_FOUND");
  EXPECT_EQ(obj->message, u"");
  EXPECT_NE(obj->message.m_str, nullptr);

  ASSERT_EQ(Call(call, 20, DISPATCH_METHOD, {CComVariant(u"E"), Missing()}), S_OK);
  EXPECT_EQ(obj->message, u"");
  // By name: Message given, exception positional.
  ASSERT_EQ(Call(call, 20, DISPATCH_METHOD, {CComVariant(u"E2"), CComVariant(u"text")}, nullptr, {1}), S_OK);
  EXPECT_EQ(obj->exception, u"E2");
  EXPECT_EQ(obj->message, u"text");
  EXPECT_EQ(obj->raiseCalls, 3);
}

TEST(Dispatch, OptionalVariantArrivesAsMissingMarker) {
  CFakeParameters* obj = nullptr;
  ASSERT_EQ(CFakeParameters::CreateInstance(&obj), S_OK);
  CComPtr<IRfcParameters> params;
  params.Attach(obj);
  ASSERT_EQ(Call(params, 6, DISPATCH_METHOD, {CComVariant(u"MATNR"), CComVariant(LONG(TYPE_CHAR))}), S_OK);
  EXPECT_EQ(obj->names.back(), u"MATNR");
  EXPECT_EQ(obj->lastType, TYPE_CHAR);
  EXPECT_EQ(obj->lastLength, 0);
  EXPECT_EQ(obj->lastDecimals, 0);
  EXPECT_EQ(V_VT(&obj->lastValue), VT_ERROR);
  EXPECT_EQ(V_ERROR(&obj->lastValue), DISP_E_PARAMNOTFOUND);

  // A hole left by the caller takes the default; the rest arrive converted.
  ASSERT_EQ(Call(params, 6, DISPATCH_METHOD,
                 {CComVariant(u"AMOUNT"), CComVariant(u"2"), Missing(), CComVariant(LONG(3)), CComVariant(1.5)}),
            S_OK);
  EXPECT_EQ(obj->lastType, TYPE_BCD);
  EXPECT_EQ(obj->lastLength, 0);
  EXPECT_EQ(obj->lastDecimals, 3);
  EXPECT_EQ(V_VT(&obj->lastValue), VT_R8);
  EXPECT_EQ(V_R8(&obj->lastValue), 1.5);

  // Early-bound, the same method.
  ASSERT_EQ(params->AddScalar(CComBSTR(u"EARLY"), TYPE_INT, 4, 0, CComVariant(LONG(7))), S_OK);
  EXPECT_EQ(obj->names.back(), u"EARLY");
  EXPECT_EQ(V_I4(&obj->lastValue), 7);
}

TEST(Dispatch, StringArgumentsConvertToNumbers) {
  CFakeStringList* obj = nullptr;
  ASSERT_EQ(CFakeStringList::CreateInstance(&obj), S_OK);
  CComPtr<IStringList> list;
  list.Attach(obj);
  obj->items = {u"a", u"b", u"c"};
  ASSERT_EQ(Call(list, 3, DISPATCH_METHOD, {CComVariant(u"2")}), S_OK);
  EXPECT_EQ(obj->items, (std::vector<std::u16string>{u"a", u"c"}));
  UINT argErr = 77;
  EXPECT_EQ(Call(list, 3, DISPATCH_METHOD, {CComVariant(u"two")}, nullptr, {}, &argErr), DISP_E_TYPEMISMATCH);
  EXPECT_EQ(argErr, 0u);
  EXPECT_EQ(obj->items.size(), 2u);
}

TEST(Dispatch, ParameterisedPropertyAndDefaultMember) {
  CFakeStringList* obj = nullptr;
  ASSERT_EQ(CFakeStringList::CreateInstance(&obj), S_OK);
  CComPtr<IStringList> list;
  list.Attach(obj);
  obj->items = {u"first", u"second"};
  CComVariant result;
  ASSERT_EQ(Call(list, DISPID_VALUE, DISPATCH_METHOD | DISPATCH_PROPERTYGET, {CComVariant(LONG(2))}, &result), S_OK);
  EXPECT_EQ(BstrOf(result), u"second");
  result.Clear();
  ASSERT_EQ(Call(list, IdOf(list, u"item"), DISPATCH_PROPERTYGET, {CComVariant(SHORT(1))}, &result), S_OK);
  EXPECT_EQ(BstrOf(result), u"first");
  // A failed member is an exception of the dispatch with its result in
  // scode, with or without an error record.
  EXCEPINFO info{};
  EXPECT_EQ(Call(list, DISPID_VALUE, DISPATCH_PROPERTYGET, {CComVariant(LONG(0))}, &result, {}, nullptr, &info),
            DISP_E_EXCEPTION);
  EXPECT_EQ(info.scode, E_INVALIDARG);
  EXPECT_EQ(info.bstrDescription, nullptr);
  EXPECT_EQ(Call(list, DISPID_VALUE, DISPATCH_PROPERTYGET, {CComVariant(LONG(3))}, &result, {}, nullptr, &info),
            DISP_E_EXCEPTION);
  EXPECT_EQ(info.scode, E_FAIL);
  result.Clear();
  ASSERT_EQ(Call(list, 5, DISPATCH_METHOD, {CComVariant(u"second")}, &result), S_OK);
  EXPECT_EQ(V_VT(&result), VT_I4);
  EXPECT_EQ(V_I4(&result), 2);
}

TEST(Dispatch, NewEnumIsReachable) {
  CFakeStringList* obj = nullptr;
  ASSERT_EQ(CFakeStringList::CreateInstance(&obj), S_OK);
  CComPtr<IStringList> list;
  list.Attach(obj);
  obj->items = {u"x", u"y"};
  CComVariant result;
  ASSERT_EQ(Call(list, DISPID_NEWENUM, DISPATCH_METHOD | DISPATCH_PROPERTYGET, {}, &result), S_OK);
  ASSERT_EQ(V_VT(&result), VT_UNKNOWN);
  CComQIPtr<IEnumVARIANT> e(V_UNKNOWN(&result));
  ASSERT_TRUE(e);
  VARIANT items[3];
  ULONG fetched = 0;
  EXPECT_EQ(e->Next(3, items, &fetched), S_FALSE);
  ASSERT_EQ(fetched, 2u);
  EXPECT_EQ(BstrOf(items[0]), u"x");
  EXPECT_EQ(BstrOf(items[1]), u"y");
  VariantClear(&items[0]);
  VariantClear(&items[1]);
}

TEST(Dispatch, OutParametersAreWrittenBack) {
  CFakeFunctionCall* obj = nullptr;
  ASSERT_EQ(CFakeFunctionCall::CreateInstance(&obj), S_OK);
  CComPtr<IFunctionCall> call;
  call.Attach(obj);
  ASSERT_EQ(call->RaiseException(CComBSTR(u"NO_DATA"), CComBSTR(u"nothing found")), S_OK);

  // A typed reference and a VARIANT reference, as Basic passes them.
  BSTR exception = SysAllocString(u"previous");
  VARIANT message;
  VariantInit(&message);
  CComVariant a, b;
  V_VT(&a) = VT_BYREF | VT_BSTR;
  V_BSTRREF(&a) = &exception;
  V_VT(&b) = VT_BYREF | VT_VARIANT;
  V_VARIANTREF(&b) = &message;
  VARIANT args[2] = {b, a};
  DISPPARAMS dp{args, nullptr, 2, 0};
  ASSERT_EQ(call->Invoke(21, IID_NULL, 0, DISPATCH_METHOD, &dp, nullptr, nullptr, nullptr), S_OK);
  EXPECT_EQ(Str(exception), u"NO_DATA");
  EXPECT_EQ(BstrOf(message), u"nothing found");
  SysFreeString(exception);
  VariantClear(&message);

  // A value where a reference is needed.
  UINT argErr = 77;
  EXPECT_EQ(Call(call, 21, DISPATCH_METHOD, {CComVariant(u"x"), CComVariant(u"y")}, nullptr, {}, &argErr),
            DISP_E_TYPEMISMATCH);
  EXPECT_EQ(argErr, 1u);
}

TEST(Dispatch, MethodResultsAndInterfaceArguments) {
  CFakeParameters* obj = nullptr;
  ASSERT_EQ(CFakeParameters::CreateInstance(&obj), S_OK);
  CComPtr<IRfcParameters> params;
  params.Attach(obj);
  CComVariant result;
  obj->names = {u"A"};
  ASSERT_EQ(Call(params, 2, DISPATCH_METHOD, {CComVariant(u"A")}, &result), S_OK);
  EXPECT_EQ(V_VT(&result), VT_BOOL);
  EXPECT_EQ(V_BOOL(&result), VARIANT_TRUE);

  // Nothing is a null interface; an object of another interface is refused.
  ASSERT_EQ(Call(params, 7, DISPATCH_METHOD, {CComVariant(u"P"), CComVariant()}), S_OK);
  EXPECT_EQ(obj->names.back(), u"P");
  EXPECT_FALSE(obj->lastTypeObject);
  auto other = Make<CFakeStringList, IStringList>();
  UINT argErr = 77;
  EXPECT_EQ(Call(params, 7, DISPATCH_METHOD, {CComVariant(u"Q"), CComVariant(static_cast<IDispatch*>(other.p))},
                 nullptr, {}, &argErr),
            DISP_E_TYPEMISMATCH);
  EXPECT_EQ(argErr, 0u);
  EXPECT_EQ(obj->names.back(), u"P");
}

TEST(Dispatch, FailureFillsExcepInfoFromTheErrorRecord) {
  ASSERT_EQ(veltrane::tlb::RegisterClassIdentities(veltrane::tlb::VeltraneLibrary()), S_OK);
  auto e = Make<CFakeRfcError, IRfcError>();
  EXCEPINFO info{};
  EXPECT_EQ(Put(e, 4, CComVariant(u"bad"), &info), DISP_E_EXCEPTION);
  EXPECT_EQ(info.scode, static_cast<SCODE>(0x80040201));
  EXPECT_EQ(Str(info.bstrDescription), u"The object has already been initialized");
  EXPECT_EQ(Str(info.bstrSource), u"Veltrane.RfcError.1");
  SysFreeString(info.bstrSource);
  SysFreeString(info.bstrDescription);
  SysFreeString(info.bstrHelpFile);

  // Early-bound, the record stays for the caller.
  EXPECT_EQ(e->put_ModuleName(CComBSTR(u"bad")), static_cast<HRESULT>(0x80040201));
  CComPtr<IErrorInfo> record;
  ASSERT_EQ(GetErrorInfo(0, &record), S_OK);
  CComBSTR description;
  record->GetDescription(&description);
  EXPECT_EQ(description, u"The object has already been initialized");

  // Without EXCEPINFO the dispatch still says an exception occurred.
  EXPECT_EQ(Put(e, 4, CComVariant(u"bad")), DISP_E_EXCEPTION);
  // A stale record does not stick to a failure of an object that sets none.
  auto list = Make<CFakeStringList, IStringList>();
  CComVariant result;
  info = EXCEPINFO{};
  EXPECT_EQ(Call(list, DISPID_VALUE, DISPATCH_PROPERTYGET, {CComVariant(LONG(0))}, &result, {}, nullptr, &info),
            DISP_E_EXCEPTION);
  EXPECT_EQ(info.scode, E_INVALIDARG);
  EXPECT_EQ(info.bstrDescription, nullptr);
  EXPECT_EQ(info.bstrSource, nullptr);
}

TEST(Dispatch, TypeInfoCount) {
  auto e = Make<CFakeRfcError, IRfcError>();
  UINT count = 0;
  EXPECT_EQ(e->GetTypeInfoCount(&count), S_OK);
  EXPECT_EQ(count, 1u);
  ITypeInfo* info = reinterpret_cast<ITypeInfo*>(1);
  EXPECT_EQ(e->GetTypeInfo(1, 0, &info), DISP_E_BADINDEX);
  EXPECT_EQ(info, nullptr);
}
