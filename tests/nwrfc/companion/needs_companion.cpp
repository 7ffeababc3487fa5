// Makes the library that is linked with it need the companion library.
extern "C" int VsimCompanionAnswer();

namespace {

[[maybe_unused]] const int kAnswer = VsimCompanionAnswer();

}  // namespace
