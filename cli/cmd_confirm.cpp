// veltrane confirm: tells the system that a transactional call has arrived,
// so that it forgets the transaction ID.
#include <iostream>

#include "backends.h"
#include "commands.h"
#include "connection.h"
#include "failure.h"
#include "output.h"
#include "text.h"

namespace veltrane::cli {

namespace {

int runConfirm(const ParsedArgs& args) {
  if (args.positionals().size() != 1) throw UsageError("confirm needs one TID");
  const Format format = outputFormat(args);
  const std::string tid = args.positionals()[0];
  ConnectionSettings settings = connectionSettings(args);
  requireTransactions(settings, "confirm");
  Connection connection(std::move(settings));
  ISession* session = connection.session();
  checkSession(session->ConfirmTransID(bstr(tid)), session, "confirming " + tid);
  connection.close();
  Json result = Json::object();
  result["tid"] = tid;
  result["confirmed"] = true;
  printProperties(std::cout, result, format);
  return 0;
}

}  // namespace

Command confirmCommand() {
  return {"confirm",
          "TID",
          "confirm a transactional call, so that the system forgets its ID",
          "Confirms the transaction ID TID of a call sent with 'veltrane call --trfc': the\n"
          "system then forgets the ID, and a call sent under it again would run again.\n"
          "Back ends whose transaction IDs belong to one session (nwrfc) confirm with\n"
          "'call --trfc --confirm' instead.",
          {},
          true,
          runConfirm};
}

}  // namespace veltrane::cli
