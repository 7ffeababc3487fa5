// IStringList: positions from 1, bounds, search and enumeration.
#include "fake_session.h"

#include <gtest/gtest.h>

#include "session/string_list.h"

using namespace session_test;

namespace {

CComPtr<IStringList> NewList(std::initializer_list<const char16_t*> items) {
  CComPtr<CRfcStringList> list;
  EXPECT_EQ(CRfcStringList::CreateInstance(&list.p), S_OK);
  for (const char16_t* item : items) EXPECT_EQ(list->Add(CComBSTR(item)), S_OK);
  return CComPtr<IStringList>(list.p);
}

TEST(StringList, PositionsCountFromOne) {
  auto list = NewList({u"A", u"B", u"C"});
  LONG count = 0;
  ASSERT_EQ(list->get_Count(&count), S_OK);
  EXPECT_EQ(count, 3);
  CComBSTR item;
  ASSERT_EQ(list->get_Item(1, &item), S_OK);
  EXPECT_EQ(Str(item), u"A");
  item.Empty();
  ASSERT_EQ(list->get_Item(3, &item), S_OK);
  EXPECT_EQ(Str(item), u"C");
}

TEST(StringList, ItemBounds) {
  auto list = NewList({u"A"});
  CComBSTR item;
  EXPECT_EQ(list->get_Item(0, &item), E_INVALIDARG);
  EXPECT_EQ(list->get_Item(-1, &item), E_INVALIDARG);
  EXPECT_EQ(list->get_Item(2, &item), E_FAIL);
  EXPECT_EQ(list->get_Item(1, nullptr), E_POINTER);
  auto empty = NewList({});
  EXPECT_EQ(empty->get_Item(1, &item), E_FAIL);
}

TEST(StringList, RemoveBoundsAndOrder) {
  auto list = NewList({u"A", u"B", u"C"});
  EXPECT_EQ(list->Remove(0), E_INVALIDARG);
  EXPECT_EQ(list->Remove(4), E_INVALIDARG);
  ASSERT_EQ(list->Remove(2), S_OK);
  CComBSTR item;
  list->get_Item(2, &item);
  EXPECT_EQ(Str(item), u"C");
  LONG count = 0;
  list->get_Count(&count);
  EXPECT_EQ(count, 2);
  ASSERT_EQ(list->RemoveAll(), S_OK);
  list->get_Count(&count);
  EXPECT_EQ(count, 0);
  EXPECT_EQ(list->Remove(1), E_INVALIDARG);
}

TEST(StringList, IndexOfFindsTheFirstExactMatch) {
  auto list = NewList({u"A", u"b", u"A", u""});
  LONG at = 0;
  ASSERT_EQ(list->IndexOf(CComBSTR(u"A"), &at), S_OK);
  EXPECT_EQ(at, 1);
  list->IndexOf(CComBSTR(u"b"), &at);
  EXPECT_EQ(at, 2);
  list->IndexOf(CComBSTR(u"B"), &at);
  EXPECT_EQ(at, -1);
  list->IndexOf(CComBSTR(u"missing"), &at);
  EXPECT_EQ(at, -1);
  list->IndexOf(nullptr, &at);
  EXPECT_EQ(at, 4);
  EXPECT_EQ(list->IndexOf(CComBSTR(u"A"), nullptr), E_POINTER);
}

TEST(StringList, DuplicatesAndNullAreKept) {
  auto list = NewList({u"A", u"A"});
  ASSERT_EQ(list->Add(nullptr), S_OK);
  LONG count = 0;
  list->get_Count(&count);
  EXPECT_EQ(count, 3);
  CComBSTR item;
  list->get_Item(3, &item);
  EXPECT_EQ(Str(item), u"");
}

TEST(StringList, EnumeratorHoldsCopies) {
  auto list = NewList({u"one", u"two"});
  CComPtr<IUnknown> unk;
  ASSERT_EQ(list->get__NewEnum(&unk), S_OK);
  CComQIPtr<IEnumVARIANT> e(unk);
  ASSERT_TRUE(e);
  list->RemoveAll();
  list->Add(CComBSTR(u"three"));
  VARIANT items[3];
  ULONG fetched = 0;
  EXPECT_EQ(e->Next(3, items, &fetched), S_FALSE);
  ASSERT_EQ(fetched, 2u);
  EXPECT_EQ(V_VT(&items[0]), VT_BSTR);
  EXPECT_EQ(Str(V_BSTR(&items[0])), u"one");
  EXPECT_EQ(Str(V_BSTR(&items[1])), u"two");
  VariantClear(&items[0]);
  VariantClear(&items[1]);
  // A late-bound For Each sees the same.
  CComQIPtr<IDispatch> disp(list);
  DISPPARAMS none{nullptr, nullptr, 0, 0};
  CComVariant result;
  ASSERT_EQ(disp->Invoke(DISPID_NEWENUM, IID_NULL, 0, DISPATCH_PROPERTYGET, &none, &result, nullptr, nullptr), S_OK);
  EXPECT_EQ(V_VT(&result), VT_UNKNOWN);
}

}  // namespace
