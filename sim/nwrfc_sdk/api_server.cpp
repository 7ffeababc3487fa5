// Entry points of registered servers.
#include "nwrfc_sdk/api.h"
#include "nwrfc_sdk/server.h"

using namespace nwrfc;

RFC_RC RfcInstallServerFunction(const SAP_UC* sysId, RFC_FUNCTION_DESC_HANDLE funcDescHandle,
                                RFC_SERVER_FUNCTION serverFunction, RFC_ERROR_INFO* errorInfo) {
  return guarded(errorInfo, [&] {
    FunctionPtr desc = functionOf(funcDescHandle);
    if (!serverFunction) fail(RFC_INVALID_PARAMETER, "No server function was given");
    const std::u16string id(ucView(sysId));
    installFunction(sysId ? &id : nullptr, std::move(desc), serverFunction);
  });
}

RFC_RC RfcInstallGenericServerFunction(RFC_SERVER_FUNCTION serverFunction, RFC_FUNC_DESC_CALLBACK funcDescProvider,
                                       RFC_ERROR_INFO* errorInfo) {
  return guarded(errorInfo, [&] {
    if (!serverFunction || !funcDescProvider)
      fail(RFC_INVALID_PARAMETER, "A generic server function needs the function and the description callback");
    installGeneric(serverFunction, funcDescProvider);
  });
}

RFC_RC RfcInstallAuthorizationCheckHandler(RFC_ON_AUTHORIZATION_CHECK onAuthorizationCheck, RFC_ERROR_INFO* errorInfo) {
  return guarded(errorInfo, [&] { installAuthorization(onAuthorizationCheck); });
}

RFC_RC RfcInstallTransactionHandlers(const SAP_UC* sysId, RFC_ON_CHECK_TRANSACTION onCheckFunction,
                                     RFC_ON_COMMIT_TRANSACTION onCommitFunction,
                                     RFC_ON_ROLLBACK_TRANSACTION onRollbackFunction,
                                     RFC_ON_CONFIRM_TRANSACTION onConfirmFunction, RFC_ERROR_INFO* errorInfo) {
  return guarded(errorInfo, [&] {
    const std::u16string id(ucView(sysId));
    installTransactionHandlers(sysId ? &id : nullptr, onCheckFunction, onCommitFunction, onRollbackFunction,
                               onConfirmFunction);
  });
}

RFC_CONNECTION_HANDLE RfcRegisterServer(const RFC_CONNECTION_PARAMETER* connectionParams, unsigned paramCount,
                                        RFC_ERROR_INFO* errorInfo) {
  return guardedHandle<RFC_CONNECTION_HANDLE>(errorInfo, [&] {
    return connectionHandle(
        own(Connection::registerServer(ConnectionParameters::collect(connectionParams, paramCount))));
  });
}

RFC_RC RfcListenAndDispatch(RFC_CONNECTION_HANDLE rfcHandle, int timeout, RFC_ERROR_INFO* errorInfo) {
  return guarded(errorInfo, [&] {
    Connection& c = openConnection(rfcHandle);
    if (c.role() != Connection::Role::Server)
      fail(RFC_INVALID_PARAMETER, "RfcListenAndDispatch needs the connection of a registered server");
    std::lock_guard lock(c.callMutex());
    return listenAndDispatch(c, std::chrono::seconds(timeout < 0 ? 0 : timeout), errorInfo);
  });
}
