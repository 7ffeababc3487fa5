// Registers the classes' identities once per test program, so that error
// records name their source by ProgID as the loaded component does.
#include <gtest/gtest.h>

#include "platform/typelib.h"
#include "veltrane_tlb.h"

namespace {

class ImportEnvironment : public ::testing::Environment {
 public:
  void SetUp() override { ASSERT_EQ(veltrane::tlb::RegisterClassIdentities(veltrane::tlb::VeltraneLibrary()), S_OK); }
};

[[maybe_unused]] ::testing::Environment* const kEnvironment =
    ::testing::AddGlobalTestEnvironment(new ImportEnvironment);

}  // namespace
