// Objects built on one thread may be released on another: the counts are
// atomic, and a release of the last reference frees the whole tree there.
#include <atomic>
#include <thread>
#include <vector>

#include "model_test_support.h"

using namespace model_test;

TEST(Threads, ACallBuiltHereIsReleasedElsewhere) {
  CComPtr<IFunctionCall> call = NewCall(u"Z_THREADS");
  CComPtr<IRfcType> row = Struct(u"ROW", {Scalar(u"A", TYPE_CHAR, 1), Scalar(u"B", TYPE_INT)});
  Tables(call)->AddTable(CComBSTR(u"T"), row);
  CComPtr<IRfcRows> rows;
  Param(Tables(call), CComVariant(u"T"))->get_Rows(&rows);
  rows->AddRows(500);
  IFunctionCall* raw = call.Detach();
  IRfcRows* rawRows = rows.Detach();
  std::thread([raw, rawRows] {
    rawRows->Release();
    raw->Release();
  }).join();
}

TEST(Threads, ManyThreadsShareOneTypeAndReleaseTheirReferences) {
  CComPtr<IRfcType> row = Struct(u"ROW", {Scalar(u"A", TYPE_CHAR, 1)});
  CComPtr<IFunctionCall> prototype = NewCall(u"Z_SHARED");
  Tables(prototype)->AddTable(CComBSTR(u"T"), row);
  std::vector<IFunctionCall*> copies(64, nullptr);
  for (auto& c : copies) ASSERT_EQ(DeepCopyCall(prototype, &c), S_OK);
  std::atomic<int> released{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      for (size_t i = t; i < copies.size(); i += 4) {
        // AddRef/Release pairs on the shared type race with the others.
        for (int k = 0; k < 100; ++k) {
          row->AddRef();
          row->Release();
        }
        copies[i]->Release();
        ++released;
      }
    });
  }
  for (auto& th : threads) th.join();
  EXPECT_EQ(released.load(), 64);
  RFCTYPEKIND kind;
  EXPECT_EQ(row->get_Kind(&kind), S_OK);
  EXPECT_EQ(kind, RFCTYPEKIND_STRUCT);
}
