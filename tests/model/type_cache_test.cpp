#include <filesystem>

#include "model_test_support.h"

using namespace model_test;

namespace {

CComPtr<ITypeCache> NewCache() {
  CComPtr<ITypeCache> c;
  EXPECT_EQ(CreateTypeCache(&c), S_OK);
  return c;
}

CComPtr<IFunctionCall> SampleCall() {
  CComPtr<IFunctionCall> call = NewCall(u"Z_CACHED");
  Importing(call)->AddScalar(CComBSTR(u"MATNR"), TYPE_CHAR, 18, 0, CComVariant(u"4711"));
  Tables(call)->AddTable(CComBSTR(u"ITEMS"), Struct(u"ROW", {Scalar(u"POS", TYPE_NUM, 6)}));
  return call;
}

}  // namespace

TEST(TypeCache, GetTypeOnAnEmptyCacheReturns1168AndLeavesTheOutput) {
  TraceFile trace;
  CComPtr<ITypeCache> cache = NewCache();
  IRfcType* sentinel = reinterpret_cast<IRfcType*>(0x1234);
  IRfcType* out = sentinel;
  EXPECT_EQ(cache->GetType(CComBSTR(u"MARA"), &out), 1168);
  EXPECT_TRUE(SUCCEEDED(1168));  // a bare number, not a failure
  EXPECT_EQ(out, sentinel);
  EXPECT_EQ(cache->GetType(CComBSTR(u"MARA"), nullptr), 1168);
  IFunctionCall* call = reinterpret_cast<IFunctionCall*>(0x5678);
  EXPECT_EQ(cache->GetFunction(CComBSTR(u"Z"), &call), 1168);
  EXPECT_EQ(call, reinterpret_cast<IFunctionCall*>(0x5678));
  const std::string text = trace.Text();
  EXPECT_NE(text.find("CTypeCache: type 'MARA' not in cache\n"), std::string::npos) << text;
  EXPECT_NE(text.find("CTypeCache: function 'Z' not in cache\n"), std::string::npos) << text;
}

TEST(TypeCache, TypesAreSharedAndTheKeyIsWhatCounts) {
  TraceFile trace;
  CComPtr<ITypeCache> cache = NewCache();
  CComPtr<IRfcType> type = Struct(u"REAL_NAME", {Scalar(u"A", TYPE_CHAR, 1)});
  EXPECT_EQ(cache->AddType(CComBSTR(u"ALIAS"), type), S_OK);
  CComPtr<IRfcType> a, b;
  EXPECT_EQ(cache->GetType(CComBSTR(u"ALIAS"), &a), S_OK);
  EXPECT_EQ(cache->GetType(CComBSTR(u"ALIAS"), &b), S_OK);
  EXPECT_EQ(a.p, type.p);
  EXPECT_EQ(b.p, type.p);
  CComPtr<IRfcType> none;
  EXPECT_EQ(cache->GetType(CComBSTR(u"REAL_NAME"), &none), 1168);
  EXPECT_EQ(cache->GetType(CComBSTR(u"alias"), &none), 1168);  // case-sensitive
  EXPECT_EQ(cache->GetType(CComBSTR(u"ALIAS"), nullptr), E_POINTER);
  EXPECT_NE(trace.Text().find("CTypeCache: retrieved type 'ALIAS' from cache\n"), std::string::npos);
  // A later entry replaces the earlier one.
  CComPtr<IRfcType> other = Scalar(u"X", TYPE_INT);
  cache->AddType(CComBSTR(u"ALIAS"), other);
  CComPtr<IRfcType> c;
  cache->GetType(CComBSTR(u"ALIAS"), &c);
  EXPECT_EQ(c.p, other.p);
  EXPECT_EQ(cache->AddType(CComBSTR(u"N"), nullptr), E_POINTER);
}

TEST(TypeCache, ATypeAndAFunctionOfOneNameDoNotCollide) {
  CComPtr<ITypeCache> cache = NewCache();
  cache->AddType(CComBSTR(u"SAME"), Scalar(u"S", TYPE_CHAR, 1));
  cache->AddFunction(CComBSTR(u"SAME"), SampleCall());
  CComPtr<IRfcType> t;
  CComPtr<IFunctionCall> f;
  EXPECT_EQ(cache->GetType(CComBSTR(u"SAME"), &t), S_OK);
  EXPECT_EQ(cache->GetFunction(CComBSTR(u"SAME"), &f), S_OK);
}

TEST(TypeCache, FunctionsAreCopiedInAndOut) {
  TraceFile trace;
  CComPtr<ITypeCache> cache = NewCache();
  CComPtr<IFunctionCall> original = SampleCall();
  ASSERT_EQ(cache->AddFunction(CComBSTR(u"Z_CACHED"), original), S_OK);
  // Changing the call after AddFunction does not change the cache.
  Importing(original)->AddScalar(CComBSTR(u"LATER"), TYPE_CHAR, 1, 0, Missing());

  CComPtr<IFunctionCall> a, b;
  ASSERT_EQ(cache->GetFunction(CComBSTR(u"Z_CACHED"), &a), S_OK);
  ASSERT_EQ(cache->GetFunction(CComBSTR(u"Z_CACHED"), &b), S_OK);
  EXPECT_NE(a.p, b.p);
  EXPECT_NE(a.p, original.p);
  EXPECT_EQ(CountOf(Importing(a)), 1);
  // No values travel through the cache.
  CComVariant v;
  Param(Importing(a), CComVariant(u"MATNR"))->get_value(&v);
  EXPECT_EQ(v.vt, VT_EMPTY);
  // A value set in one copy does not show in the next.
  Param(Importing(a), CComVariant(u"MATNR"))->put_value(CComVariant(u"changed"));
  CComPtr<IFunctionCall> c;
  cache->GetFunction(CComBSTR(u"Z_CACHED"), &c);
  v.Clear();
  Param(Importing(c), CComVariant(u"MATNR"))->get_value(&v);
  EXPECT_EQ(v.vt, VT_EMPTY);
  // The copies share their types with the cached prototype and the source.
  CComPtr<IRfcType> ta, tb, to;
  Param(Importing(a), CComVariant(u"MATNR"))->get_RfcType(&ta);
  Param(Importing(b), CComVariant(u"MATNR"))->get_RfcType(&tb);
  Param(Importing(original), CComVariant(u"MATNR"))->get_RfcType(&to);
  EXPECT_EQ(ta.p, tb.p);
  EXPECT_EQ(ta.p, to.p);
  EXPECT_NE(trace.Text().find("CTypeCache: retrieved function 'Z_CACHED' from cache\n"), std::string::npos);
  EXPECT_EQ(cache->GetFunction(CComBSTR(u"Z_CACHED"), nullptr), E_POINTER);
  EXPECT_EQ(cache->AddFunction(CComBSTR(u"X"), nullptr), E_POINTER);
}

TEST(TypeCache, ClearEmptiesBothMapsAndHeldObjectsStayValid) {
  CComPtr<ITypeCache> cache = NewCache();
  CComPtr<IRfcType> type = Scalar(u"S", TYPE_CHAR, 1);
  cache->AddType(CComBSTR(u"T"), type);
  cache->AddFunction(CComBSTR(u"F"), SampleCall());
  CComPtr<IFunctionCall> held;
  cache->GetFunction(CComBSTR(u"F"), &held);
  EXPECT_EQ(cache->Clear(), S_OK);
  CComPtr<IRfcType> t;
  CComPtr<IFunctionCall> f;
  EXPECT_EQ(cache->GetType(CComBSTR(u"T"), &t), 1168);
  EXPECT_EQ(cache->GetFunction(CComBSTR(u"F"), &f), 1168);
  CComBSTR name;
  EXPECT_EQ(held->get_Function(&name), S_OK);
  EXPECT_EQ(Str(name), u"Z_CACHED");
  RFCTYPEKIND kind;
  EXPECT_EQ(type->get_Kind(&kind), S_OK);
}

TEST(TypeCache, SaveAndLoadAreNotAvailableAndWriteNothing) {
  CComPtr<ITypeCache> cache = NewCache();
  cache->AddType(CComBSTR(u"T"), Scalar(u"S", TYPE_CHAR, 1));
  const auto path = std::filesystem::temp_directory_path() / "veltrane_model_cache_test.xml";
  std::filesystem::remove(path);
  const std::u16string wide = Utf8ToWide(path.string());
  EXPECT_EQ(cache->SaveToXML(CComBSTR(wide.c_str())), E_NOTIMPL);
  EXPECT_FALSE(std::filesystem::exists(path));
  EXPECT_EQ(cache->SaveToXML(nullptr), E_NOTIMPL);
  EXPECT_EQ(cache->LoadFromXML(CComBSTR(wide.c_str())), E_NOTIMPL);
  EXPECT_EQ(cache->LoadFromXML(nullptr), E_NOTIMPL);
}
