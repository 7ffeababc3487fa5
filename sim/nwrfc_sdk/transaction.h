// A transaction of transactional RFC on the client side: calls collected under one ID, sent
// together by submit, forgotten by the system on confirm.
#pragma once

#include <string>
#include <vector>

#include "nwrfc_sdk/connection.h"

namespace nwrfc {

class Transaction : public Object {
 public:
  static bool accepts(ObjectKind k) { return k == ObjectKind::Transaction; }
  Transaction(Connection& c, std::string tid, std::string queue)
      : Object(ObjectKind::Transaction), connection_(&c), tid_(std::move(tid)), queue_(std::move(queue)) {}

  Connection& connection();
  const std::string& tid() const { return tid_; }
  void add(std::string unit);  // an InvokeHead and its values section
  void submit();
  void confirm();

 private:
  Connection* connection_;
  std::string tid_, queue_;
  std::vector<std::string> units_;
  bool submitted_ = false, confirmed_ = false;
};

}  // namespace nwrfc
