#include "nwrfc_sdk/transaction.h"

#include "nwrfc_sdk/api.h"

namespace nwrfc {

namespace proto = vsim::proto;

Connection& Transaction::connection() {
  // The connection may have been closed since the transaction was made.
  return openConnection(connectionHandle(connection_));
}

void Transaction::add(std::string unit) {
  if (submitted_) fail(RFC_ILLEGAL_STATE, "Transaction " + tid_ + " was submitted already");
  units_.push_back(std::move(unit));
}

void Transaction::submit() {
  if (confirmed_) fail(RFC_ILLEGAL_STATE, "Transaction " + tid_ + " was confirmed and cannot be sent again");
  if (units_.empty()) fail(RFC_ILLEGAL_STATE, "Transaction " + tid_ + " holds no call");
  Connection& c = connection();
  std::lock_guard lock(c.callMutex());
  proto::FrameBuilder f(proto::MessageKind::Transaction, 1024);
  proto::TransactionHead head;
  head.tid = tid_;
  head.queue = queue_;
  head.count = static_cast<std::uint32_t>(units_.size());
  proto::writeTransactionHead(f.writer(), head);
  for (const std::string& u : units_) f.writer().buffer() += u;
  trace().call(Entry::RfcSubmitTransaction, tid_);
  const std::string answer = c.request(f.finish());
  proto::Reader r(answer);
  const auto kind = static_cast<proto::MessageKind>(r.u8());
  if (kind == proto::MessageKind::Exception) throw SdkError(recordOf(proto::readError(r)));
  expectAnswer(answer, proto::MessageKind::Ok);
  submitted_ = true;
}

void Transaction::confirm() {
  if (!submitted_) fail(RFC_ILLEGAL_STATE, "Transaction " + tid_ + " was not submitted");
  Connection& c = connection();
  std::lock_guard lock(c.callMutex());
  proto::FrameBuilder f(proto::MessageKind::Confirm);
  f.writer().text(tid_);
  trace().call(Entry::RfcConfirmTransaction, tid_);
  expectAnswer(c.request(f.finish()), proto::MessageKind::Ok);
  confirmed_ = true;
}

}  // namespace nwrfc
