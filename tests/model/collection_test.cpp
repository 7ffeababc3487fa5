// The keyed collection rules, seen through RfcTypes (which shows every
// operation), RfcFields, RfcParameters and FunctionCalls.
#include "model_test_support.h"

using namespace model_test;

namespace {

CComPtr<IRfcTypes> Members(IRfcType* t) {
  CComPtr<IRfcTypes> m;
  EXPECT_EQ(t->get_StructFields(&m), S_OK);
  return m;
}

// A collection of scalar types with the given names, in order.
CComPtr<IRfcTypes> Collection(std::initializer_list<const char16_t*> names, CComPtr<IRfcType>& owner) {
  owner = NewType();
  CComPtr<IRfcTypes> c = Members(owner);
  for (const char16_t* n : names) {
    EXPECT_EQ(c->Add(Scalar(n, TYPE_CHAR, 1)), S_OK);
  }
  return c;
}

std::u16string NameAt(IRfcTypes* c, const VARIANT& index) {
  CComPtr<IRfcType> t;
  if (FAILED(c->get_Item(index, &t))) return u"<none>";
  CComBSTR name;
  t->get_name(&name);
  return Str(name);
}

LONG Count(IRfcTypes* c) {
  LONG n = -1;
  EXPECT_EQ(c->get_Count(&n), S_OK);
  return n;
}

bool Has(IRfcTypes* c, const char16_t* key) {
  VARIANT_BOOL b = VARIANT_FALSE;
  EXPECT_EQ(c->HasKey(CComBSTR(key), &b), S_OK);
  return b == VARIANT_TRUE;
}

}  // namespace

TEST(KeyedCollection, PositionsStartAtOneInTheOrderOfAdding) {
  CComPtr<IRfcType> owner;
  CComPtr<IRfcTypes> c = Collection({u"MATNR", u"WERKS", u"LGORT"}, owner);
  EXPECT_EQ(Count(c), 3);
  EXPECT_EQ(NameAt(c, CComVariant(LONG(1))), u"MATNR");
  EXPECT_EQ(NameAt(c, CComVariant(LONG(3))), u"LGORT");
  CComPtr<IRfcType> t;
  EXPECT_EQ(c->get_Item(CComVariant(LONG(0)), &t), E_INVALIDARG);
  EXPECT_EQ(c->get_Item(CComVariant(LONG(4)), &t), E_INVALIDARG);
  EXPECT_EQ(c->get_Item(CComVariant(LONG(-1)), &t), E_INVALIDARG);
  EXPECT_FALSE(t);
}

TEST(KeyedCollection, OtherNumericVariantsArePositionsToo) {
  CComPtr<IRfcType> owner;
  CComPtr<IRfcTypes> c = Collection({u"A", u"B"}, owner);
  EXPECT_EQ(NameAt(c, CComVariant(SHORT(2))), u"B");
  EXPECT_EQ(NameAt(c, CComVariant(2.0)), u"B");
  EXPECT_EQ(NameAt(c, CComVariant(u"2")), u"B");
  EXPECT_EQ(NameAt(c, CComVariant(u" 1")), u"A");
  CComVariant target(LONG(2));
  VARIANT ref;
  ref.vt = VT_BYREF | VT_VARIANT;
  ref.pvarVal = &target;
  EXPECT_EQ(NameAt(c, ref), u"B");
  LONG position = 1;
  VARIANT refLong;
  refLong.vt = VT_BYREF | VT_I4;
  refLong.plVal = &position;
  EXPECT_EQ(NameAt(c, refLong), u"A");
}

TEST(KeyedCollection, KeysAreCaseSensitive) {
  CComPtr<IRfcType> owner;
  CComPtr<IRfcTypes> c = Collection({u"MATNR"}, owner);
  EXPECT_EQ(NameAt(c, CComVariant(u"MATNR")), u"MATNR");
  CComPtr<IRfcType> t;
  EXPECT_EQ(c->get_Item(CComVariant(u"matnr"), &t), E_INVALIDARG);
  EXPECT_EQ(c->get_Item(CComVariant(u"Matnr"), &t), E_INVALIDARG);
  EXPECT_FALSE(Has(c, u"matnr"));
  EXPECT_TRUE(Has(c, u"MATNR"));
}

TEST(KeyedCollection, KeysCompareExactlyBeyondAscii) {
  CComPtr<IRfcType> owner;
  CComPtr<IRfcTypes> c = Collection({u"\u00c4RGER", u"\u00e4rger", u"STRASSE", u"STRA\u00dfE", u""}, owner);
  EXPECT_EQ(NameAt(c, CComVariant(u"\u00c4RGER")), u"\u00c4RGER");
  EXPECT_EQ(NameAt(c, CComVariant(u"\u00e4rger")), u"\u00e4rger");
  EXPECT_EQ(NameAt(c, CComVariant(u"STRA\u00dfE")), u"STRA\u00dfE");
  EXPECT_EQ(NameAt(c, CComVariant(u"STRASSE")), u"STRASSE");
  EXPECT_TRUE(Has(c, u""));
  VARIANT_BOOL b = VARIANT_FALSE;
  EXPECT_EQ(c->HasKey(nullptr, &b), S_OK);  // a null key is the empty key
  EXPECT_EQ(b, VARIANT_TRUE);
}

TEST(KeyedCollection, ANumericNameCannotBeReachedAsAKeyButHasKeyFindsIt) {
  CComPtr<IRfcType> owner;
  CComPtr<IRfcTypes> c = Collection({u"A", u"10"}, owner);
  CComPtr<IRfcType> t;
  EXPECT_EQ(c->get_Item(CComVariant(u"10"), &t), E_INVALIDARG);  // position 10 of 2
  EXPECT_TRUE(Has(c, u"10"));
  for (int i = 0; i < 8; ++i) c->Add(Scalar(u"X", TYPE_CHAR, 1));
  EXPECT_EQ(NameAt(c, CComVariant(u"10")), u"X");  // now position 10 exists
}

TEST(KeyedCollection, DuplicatesStayAndTheKeyFindsTheNewest) {
  CComPtr<IRfcType> owner = NewType();
  CComPtr<IRfcTypes> c = Members(owner);
  CComPtr<IRfcType> first = Scalar(u"F", TYPE_CHAR, 1), second = Scalar(u"F", TYPE_INT, 4);
  c->Add(first);
  c->Add(second);
  EXPECT_EQ(Count(c), 2);
  CComPtr<IRfcType> t;
  c->get_Item(CComVariant(u"F"), &t);
  EXPECT_EQ(t.p, second.p);
  t.Release();
  c->get_Item(CComVariant(LONG(1)), &t);
  EXPECT_EQ(t.p, first.p);
}

TEST(KeyedCollection, RemoveInTheMiddleKeepsEveryLaterKeyAtItsNewPosition) {
  CComPtr<IRfcType> owner;
  CComPtr<IRfcTypes> c = Collection({u"A", u"B", u"C", u"D", u"E"}, owner);
  EXPECT_EQ(c->Remove(CComVariant(u"B")), S_OK);
  EXPECT_EQ(Count(c), 4);
  EXPECT_EQ(NameAt(c, CComVariant(u"C")), u"C");
  EXPECT_EQ(NameAt(c, CComVariant(u"E")), u"E");
  EXPECT_EQ(NameAt(c, CComVariant(LONG(2))), u"C");
  EXPECT_EQ(NameAt(c, CComVariant(LONG(4))), u"E");
  EXPECT_FALSE(Has(c, u"B"));
  EXPECT_EQ(c->Remove(CComVariant(LONG(1))), S_OK);
  EXPECT_EQ(NameAt(c, CComVariant(LONG(1))), u"C");
  EXPECT_EQ(NameAt(c, CComVariant(u"D")), u"D");
  EXPECT_EQ(c->Remove(CComVariant(u"3")), S_OK);  // a numeric string is a position
  EXPECT_EQ(Count(c), 2);
  EXPECT_FALSE(Has(c, u"E"));
}

TEST(KeyedCollection, RemoveRebuildsTheMapFromTheItemsCurrentKeys) {
  CComPtr<IRfcType> owner = NewType();
  CComPtr<IRfcTypes> c = Members(owner);
  CComPtr<IRfcType> older = Scalar(u"F", TYPE_CHAR, 1), newer = Scalar(u"F", TYPE_INT, 4);
  c->Add(older);
  c->Add(Scalar(u"G", TYPE_CHAR, 1));
  c->Add(newer);
  // Removing the newest of a duplicate key brings the older one back.
  EXPECT_EQ(c->Remove(CComVariant(u"F")), S_OK);
  CComPtr<IRfcType> t;
  EXPECT_EQ(c->get_Item(CComVariant(u"F"), &t), S_OK);
  EXPECT_EQ(t.p, older.p);
}

TEST(KeyedCollection, RemoveMissesGiveInvalidArgument) {
  CComPtr<IRfcType> owner;
  CComPtr<IRfcTypes> c = Collection({u"A"}, owner);
  EXPECT_EQ(c->Remove(CComVariant(u"Z")), E_INVALIDARG);
  EXPECT_EQ(c->Remove(CComVariant(LONG(2))), E_INVALIDARG);
  EXPECT_EQ(c->Remove(CComVariant(LONG(0))), E_INVALIDARG);
  EXPECT_EQ(Count(c), 1);
}

TEST(KeyedCollection, RemovingTheOnlyElementLeavesAnEmptyCollection) {
  CComPtr<IRfcType> owner;
  CComPtr<IRfcTypes> c = Collection({u"ONLY"}, owner);
  CComPtr<IRfcType> kept;
  c->get_Item(CComVariant(LONG(1)), &kept);
  EXPECT_EQ(c->Remove(CComVariant(u"ONLY")), S_OK);
  EXPECT_EQ(Count(c), 0);
  EXPECT_FALSE(Has(c, u"ONLY"));
  CComPtr<IRfcType> t;
  EXPECT_EQ(c->get_Item(CComVariant(LONG(1)), &t), E_INVALIDARG);
  EXPECT_EQ(c->get_Item(CComVariant(u"ONLY"), &t), E_INVALIDARG);
  // The removed item lives on for whoever holds it.
  CComBSTR name;
  EXPECT_EQ(kept->get_name(&name), S_OK);
  EXPECT_EQ(Str(name), u"ONLY");
  EXPECT_EQ(c->Add(kept), S_OK);
  EXPECT_EQ(Count(c), 1);
}

TEST(KeyedCollection, RemoveAllEmptiesListAndMap) {
  CComPtr<IRfcType> owner;
  CComPtr<IRfcTypes> c = Collection({u"A", u"B"}, owner);
  EXPECT_EQ(c->RemoveAll(), S_OK);
  EXPECT_EQ(Count(c), 0);
  EXPECT_FALSE(Has(c, u"A"));
  EXPECT_EQ(c->RemoveAll(), S_OK);
}

TEST(KeyedCollection, FailuresCarryNoErrorRecord) {
  CComPtr<IRfcType> owner;
  CComPtr<IRfcTypes> c = Collection({u"A"}, owner);
  ClearError();
  CComPtr<IRfcType> t;
  EXPECT_EQ(c->get_Item(CComVariant(u"nope"), &t), E_INVALIDARG);
  EXPECT_FALSE(TakeError().present);
  EXPECT_EQ(c->Remove(CComVariant(LONG(9))), E_INVALIDARG);
  EXPECT_FALSE(TakeError().present);
  EXPECT_EQ(c->Add(nullptr), E_UNEXPECTED);
  EXPECT_FALSE(TakeError().present);
}

TEST(KeyedCollection, AnItemOfTheWrongKindIsRefused) {
  CComPtr<IRfcType> owner = NewType();
  CComPtr<IRfcTypes> c = Members(owner);
  CComPtr<IRfcTypes> other = Members(NewType());
  // An object that does not answer IRfcType, passed where one is expected.
  EXPECT_EQ(c->Add(reinterpret_cast<IRfcType*>(other.p)), E_UNEXPECTED);
  EXPECT_EQ(Count(c), 0);
}

TEST(KeyedCollection, AnIndexThatIsNeitherNumberNorTextIsRefused) {
  CComPtr<IRfcType> owner;
  CComPtr<IRfcTypes> c = Collection({u"A"}, owner);
  CComVariant array;
  array.vt = VT_ARRAY | VT_I4;
  array.parray = SafeArrayCreateVector(VT_I4, 0, 2);
  CComPtr<IRfcType> t;
  EXPECT_EQ(c->get_Item(array, &t), E_INVALIDARG);
  EXPECT_EQ(c->get_Item(CComVariant(LONG(1)), nullptr), E_POINTER);
  EXPECT_EQ(c->HasKey(CComBSTR(u"A"), nullptr), E_POINTER);
  EXPECT_EQ(c->get_Count(nullptr), E_POINTER);
  EXPECT_EQ(c->get__NewEnum(nullptr), E_POINTER);
}

TEST(KeyedCollection, NewEnumWalksTheItemsInOrder) {
  CComPtr<IRfcType> owner;
  CComPtr<IRfcTypes> c = Collection({u"A", u"B", u"C"}, owner);
  CComPtr<IUnknown> unk;
  ASSERT_EQ(c->get__NewEnum(&unk), S_OK);
  CComQIPtr<IEnumVARIANT> e(unk.p);
  ASSERT_TRUE(e);
  std::u16string seen;
  VARIANT v;
  while (e->Next(1, &v, nullptr) == S_OK) {
    EXPECT_EQ(v.vt, VT_DISPATCH);
    CComQIPtr<IRfcType> t(v.pdispVal);
    CComBSTR name;
    t->get_name(&name);
    seen += Str(name);
    VariantClear(&v);
  }
  EXPECT_EQ(seen, u"ABC");
}

TEST(KeyedCollection, NewEnumIsLiveWhileTheCollectionChanges) {
  CComPtr<IRfcType> owner;
  CComPtr<IRfcTypes> c = Collection({u"A", u"B", u"C"}, owner);
  CComPtr<IUnknown> unk;
  c->get__NewEnum(&unk);
  CComQIPtr<IEnumVARIANT> e(unk.p);
  VARIANT v;
  ASSERT_EQ(e->Next(1, &v, nullptr), S_OK);  // A
  VariantClear(&v);
  c->Add(Scalar(u"D", TYPE_CHAR, 1));
  c->Remove(CComVariant(u"A"));  // B moves to position 1, C to 2, D to 3
  std::u16string seen;
  while (e->Next(1, &v, nullptr) == S_OK) {
    CComQIPtr<IRfcType> t(v.pdispVal);
    CComBSTR name;
    t->get_name(&name);
    seen += Str(name);
    VariantClear(&v);
  }
  EXPECT_EQ(seen, u"CD");
  c->RemoveAll();
  EXPECT_EQ(e->Reset(), S_OK);
  EXPECT_EQ(e->Next(1, &v, nullptr), S_FALSE);
}

TEST(KeyedCollection, AnEnumeratorKeepsItsCollectionAlive) {
  CComPtr<IEnumVARIANT> e;
  {
    CComPtr<IRfcType> owner;
    CComPtr<IRfcTypes> c = Collection({u"A", u"B"}, owner);
    CComPtr<IUnknown> unk;
    c->get__NewEnum(&unk);
    unk.QueryInterface(&e);
  }
  VARIANT v[2];
  ULONG fetched = 0;
  EXPECT_EQ(e->Next(2, v, &fetched), S_OK);
  EXPECT_EQ(fetched, 2u);
  VariantClear(&v[0]);
  VariantClear(&v[1]);
}

TEST(KeyedCollection, FieldsFollowTheSameRules) {
  CComPtr<IRfcType> st = Struct(u"ST", {Scalar(u"MATNR", TYPE_CHAR, 18), Scalar(u"10", TYPE_INT)});
  CComPtr<IRfcParameters> set = Importing(NewCall());
  set->AddParameter(CComBSTR(u"S"), st);
  CComPtr<IRfcFields> fields;
  ASSERT_EQ(Param(set, CComVariant(u"S"))->get_Fields(&fields), S_OK);
  CComPtr<IRfcField> f;
  EXPECT_EQ(fields->get_Item(CComVariant(u"matnr"), &f), E_INVALIDARG);
  EXPECT_EQ(fields->get_Item(CComVariant(u"10"), &f), E_INVALIDARG);
  VARIANT_BOOL has = VARIANT_FALSE;
  fields->HasKey(CComBSTR(u"10"), &has);
  EXPECT_EQ(has, VARIANT_TRUE);
  EXPECT_EQ(fields->get_Item(CComVariant(LONG(1)), &f), S_OK);
  CComBSTR name;
  f->get_name(&name);
  EXPECT_EQ(Str(name), u"MATNR");
  // AddField keys by the field's name; a duplicate shadows the earlier one.
  f.Release();
  fields->get_Item(CComVariant(LONG(2)), &f);
  f->put_name(CComBSTR(u"MATNR"));  // a rename does not touch the map
  VARIANT_BOOL stillTen = VARIANT_FALSE;
  fields->HasKey(CComBSTR(u"10"), &stillTen);
  EXPECT_EQ(stillTen, VARIANT_TRUE);
  EXPECT_EQ(fields->AddField(f), S_OK);
  LONG n = 0;
  fields->get_Count(&n);
  EXPECT_EQ(n, 3);
  CComPtr<IRfcField> found;
  fields->get_Item(CComVariant(u"MATNR"), &found);
  EXPECT_EQ(found.p, f.p);
}

TEST(KeyedCollection, FunctionCallsAreKeyedByFunctionWhenAdded) {
  CComPtr<IFunctionCalls> calls;
  ASSERT_EQ(CreateFunctionCalls(&calls), S_OK);
  CComPtr<IFunctionCall> a = NewCall(u"Z_A"), b = NewCall(u"Z_B");
  EXPECT_EQ(calls->AddFunction(a), S_OK);
  EXPECT_EQ(calls->AddFunction(b), S_OK);
  LONG n = 0;
  calls->get_Count(&n);
  EXPECT_EQ(n, 2);
  a->put_Function(CComBSTR(u"Z_RENAMED"));
  CComPtr<IFunctionCall> got;
  EXPECT_EQ(calls->get_Item(CComVariant(u"Z_A"), &got), S_OK);
  EXPECT_EQ(got.p, a.p);
  got.Release();
  EXPECT_EQ(calls->get_Item(CComVariant(u"Z_RENAMED"), &got), E_INVALIDARG);
  VARIANT_BOOL has = VARIANT_TRUE;
  calls->HasKey(CComBSTR(u"z_b"), &has);
  EXPECT_EQ(has, VARIANT_FALSE);
  EXPECT_EQ(calls->get_Item(CComVariant(LONG(2)), &got), S_OK);
  EXPECT_EQ(got.p, b.p);
  EXPECT_EQ(calls->AddFunction(nullptr), E_UNEXPECTED);
  CComPtr<IUnknown> unk;
  EXPECT_EQ(calls->get__NewEnum(&unk), S_OK);
}

TEST(KeyedCollection, AThousandMembersByKeyAndByPosition) {
  CComPtr<IRfcType> owner = NewType();
  CComPtr<IRfcTypes> c = Members(owner);
  for (int i = 0; i < 1000; ++i) {
    std::u16string name = u"F" + Utf8ToWide(std::to_string(i));
    c->Add(Scalar(name.c_str(), TYPE_CHAR, 1));
  }
  EXPECT_EQ(Count(c), 1000);
  for (int i = 0; i < 1000; i += 37) {
    std::u16string name = u"F" + Utf8ToWide(std::to_string(i));
    EXPECT_EQ(NameAt(c, CComVariant(name.c_str())), name);
    EXPECT_EQ(NameAt(c, CComVariant(LONG(i + 1))), name);
  }
  EXPECT_EQ(c->Remove(CComVariant(u"F0")), S_OK);
  EXPECT_EQ(NameAt(c, CComVariant(u"F999")), u"F999");
  EXPECT_EQ(NameAt(c, CComVariant(LONG(999))), u"F999");
}
