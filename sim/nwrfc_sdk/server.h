// The server side: handlers the application installs (functions, the description callback, the
// authorization check, the transaction handlers), and the dispatch of one incoming call or
// confirmation on a registered connection.
#pragma once

#include <chrono>

#include "nwrfc_sdk/connection.h"

namespace nwrfc {

struct ServerHandlers {
  RFC_SERVER_FUNCTION generic = nullptr;
  RFC_FUNC_DESC_CALLBACK describe = nullptr;
  RFC_ON_AUTHORIZATION_CHECK authorize = nullptr;
};

void installFunction(const std::u16string* sysId, FunctionPtr desc, RFC_SERVER_FUNCTION function);
void installGeneric(RFC_SERVER_FUNCTION function, RFC_FUNC_DESC_CALLBACK describe);
void installAuthorization(RFC_ON_AUTHORIZATION_CHECK check);
void installTransactionHandlers(const std::u16string* sysId, RFC_ON_CHECK_TRANSACTION check,
                                RFC_ON_COMMIT_TRANSACTION commit, RFC_ON_ROLLBACK_TRANSACTION rollback,
                                RFC_ON_CONFIRM_TRANSACTION confirm);

// Waits up to `timeout` for a call and serves it: RFC_RETRY when none came, else the handler's
// result (its record in `info`). Connection failures throw.
RFC_RC listenAndDispatch(Connection& c, std::chrono::milliseconds timeout, RFC_ERROR_INFO* info);

// The SDK's attributes of a connection (of the call being served, on a server).
void fillAttributes(Connection& c, RFC_ATTRIBUTES& a);

}  // namespace nwrfc
