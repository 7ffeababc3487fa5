// The SDK's own trace: a file rfc<pid>.trc in the trace directory, written from level 1 (errors),
// 2 (calls of the connection-level entry points, by their generated names) or 3 (details).
// RfcSetTraceDir and RfcSetTraceLevel set it; the environment's RFC_TRACE and RFC_TRACE_DIR and the
// DEFAULT section of sapnwrfc.ini give the start values.
#pragma once

#include <cstdio>
#include <mutex>
#include <string>

#include "nwrfc/nwrfc_entry_points.h"

namespace nwrfc {

struct ErrorRecord;
using veltrane::sdk::nwrfc::Entry;

class Trace {
 public:
  Trace();
  ~Trace();
  void setDirectory(const std::string& dir);
  void setLevel(unsigned level);
  unsigned level() const { return level_; }
  std::string directory() const;
  // The file the trace writes to, once it wrote something.
  std::string file() const;

  void call(Entry entry, const std::string& detail = {});  // level 2
  void detail(const std::string& text);                    // level 3
  void error(const ErrorRecord& record);                   // level 1

 private:
  void write(unsigned level, const std::string& text);
  mutable std::mutex mutex_;
  std::string dir_ = ".";
  std::string file_;
  std::FILE* out_ = nullptr;
  unsigned level_ = 0;
};

Trace& trace();

}  // namespace nwrfc
