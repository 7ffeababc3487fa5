// A data file of the simulator on arbitrary text: it loads into a new
// system, or is refused with a DataDirError that names the file, and
// nothing else fails.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "engine/data_dir.h"
#include "engine/system.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  vsim::SystemOptions options;
  options.flightRows = 1;  // the standard flights only slow the start down
  vsim::System system(options);
  try {
    vsim::loadDataText(system, text, "fuzz.json");
  } catch (const vsim::DataDirError& e) {
    if (std::string(e.what()).find("fuzz.json") == std::string::npos) {
      std::fprintf(stderr, "a failure that does not name the file: %s\n", e.what());
      std::abort();
    }
  }
  return 0;
}
