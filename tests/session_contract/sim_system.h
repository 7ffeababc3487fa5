// veltrane-sim with the contract's modules, as the back ends' systems share
// it: the process, its control endpoint, and the count of requests of the
// front a back end uses. Each back end's system adds how its sessions reach
// the simulated system (soap_system.cpp, nwrfc_system.cpp).
#pragma once

#include <regex>
#include <string>

#include "contract.h"
#include "loopback.h"
#include "testing/sim_process.h"

namespace contract {

class SimContractSystem : public ContractSystem {
 public:
  // counter: the status field of the front the back end uses ("requests",
  // "rfcRequests"); controlsCount: whether that front counts the control
  // requests too, which are then taken off.
  SimContractSystem(std::string counter, bool controlsCount)
      : m_sim(Options()), m_counter(std::move(counter)), m_controlsCount(controlsCount) {}

  long Requests() override {
    const std::string body = Control("status");
    std::smatch m;
    if (!std::regex_search(body, m, std::regex("\"" + m_counter + "\":([0-9]+)"))) return -1;
    return std::stol(m[1]) - (m_controlsCount ? m_controls : 0);
  }

  void Reset() override { Control("reset"); }

 protected:
  const vsim::testing::SimProcess& Sim() const { return m_sim; }

  std::string Control(const std::string& what) {
    std::string body;
    ++m_controls;
    EXPECT_EQ(soaptest::SimControl(m_sim.soapUrl(), what, &body), 200) << what;
    return body;
  }

 private:
  static vsim::testing::SimOptions Options() {
    vsim::testing::SimOptions options;
    options.args = {"--data-dir", ContractDataDir()};
    return options;
  }

  vsim::testing::SimProcess m_sim;
  std::string m_counter;
  bool m_controlsCount;
  long m_controls = 0;
};

}  // namespace contract
