#include "platform/enum_variant.h"

#include <gtest/gtest.h>

namespace {

// A live source: the enumerator reads the vector as it is at each step.
class LiveSource : public CEnumVariantBase::Source {
 public:
  explicit LiveSource(std::vector<LONG>* items) : m_items(items) {}
  ULONG count() override { return static_cast<ULONG>(m_items->size()); }
  HRESULT item(ULONG i, VARIANT* out) override {
    out->vt = VT_I4;
    out->lVal = (*m_items)[i];
    return S_OK;
  }

 private:
  std::vector<LONG>* m_items;
};

}  // namespace

TEST(EnumVariant, NextSkipResetClone) {
  CComPtr<IUnknown> unk;
  std::vector<CComVariant> items{CComVariant(LONG(1)), CComVariant(u"two"), CComVariant(3.0)};
  ASSERT_EQ(CEnumVariantBase::Create(std::make_shared<CVariantVectorSource>(items), nullptr, &unk), S_OK);
  CComQIPtr<IEnumVARIANT> e(unk.p);
  ASSERT_TRUE(e);
  VARIANT out[3];
  ULONG fetched = 0;
  EXPECT_EQ(e->Next(2, out, &fetched), S_OK);
  EXPECT_EQ(fetched, 2u);
  EXPECT_EQ(out[0].lVal, 1);
  EXPECT_EQ(std::u16string(out[1].bstrVal), u"two");
  VariantClear(&out[0]);
  VariantClear(&out[1]);
  CComPtr<IEnumVARIANT> clone;
  ASSERT_EQ(e->Clone(&clone), S_OK);
  EXPECT_EQ(e->Next(3, out, &fetched), S_FALSE);
  EXPECT_EQ(fetched, 1u);
  EXPECT_EQ(out[0].vt, VT_R8);
  EXPECT_EQ(clone->Next(1, out, nullptr), S_OK);  // the clone kept its position
  EXPECT_EQ(out[0].vt, VT_R8);
  EXPECT_EQ(e->Skip(1), S_FALSE);
  EXPECT_EQ(e->Reset(), S_OK);
  EXPECT_EQ(e->Skip(3), S_OK);
  EXPECT_EQ(e->Next(1, out, &fetched), S_FALSE);
  EXPECT_EQ(fetched, 0u);
  EXPECT_EQ(e->Next(2, out, nullptr), E_POINTER);
}

TEST(EnumVariant, SeesChangesOfALiveSource) {
  std::vector<LONG> items{10, 20};
  CComPtr<IUnknown> unk;
  CEnumVariantBase::Create(std::make_shared<LiveSource>(&items), nullptr, &unk);
  CComQIPtr<IEnumVARIANT> e(unk.p);
  VARIANT v;
  EXPECT_EQ(e->Next(1, &v, nullptr), S_OK);
  items.push_back(30);
  items.erase(items.begin());
  EXPECT_EQ(e->Next(1, &v, nullptr), S_OK);
  EXPECT_EQ(v.lVal, 30);
  EXPECT_EQ(e->Next(1, &v, nullptr), S_FALSE);
}
