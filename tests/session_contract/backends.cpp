// The back ends that keep the session contract. A back end joins with one
// line below, naming the ContractSystem that reaches the simulated system
// through it (see soap_system.cpp).
#include "contract.h"

namespace contract {

std::unique_ptr<ContractSystem> StartSoapSystem();   // soap_system.cpp
std::unique_ptr<ContractSystem> StartNWRfcSystem();  // sdk_systems.cpp
std::unique_ptr<ContractSystem> StartRfcSystem();    // sdk_systems.cpp

INSTANTIATE_TEST_SUITE_P(Backends, SessionContract,
                         ::testing::Values(SessionBackend{"Soap", u"SOAP", &StartSoapSystem},
                                           SessionBackend{"NWRfc", u"NWRFC", &StartNWRfcSystem,
                                                          AbortCall::LetsTheCallFinish, SecondCall::GoesToTheSdk,
                                                          ActiveInCallFinished::Yes},
                                           SessionBackend{"Rfc", u"RFC", &StartRfcSystem, AbortCall::StopsTheCall,
                                                          SecondCall::Refused, ActiveInCallFinished::No,
                                                          ImportFailure::ItsOwnResult, ExceptionName::InTheMessage}),
                         PrintBackend);

}  // namespace contract
