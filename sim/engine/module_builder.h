// Compact definition of function module interfaces for the standard modules.
#pragma once

#include <string>

#include "engine/system.h"

namespace vsim {

class ModuleBuilder {
 public:
  ModuleBuilder(System& system, std::string name, std::string group, std::string text) : system_(system) {
    fm_.name = std::move(name);
    fm_.group = std::move(group);
    fm_.text = std::move(text);
  }
  ModuleBuilder& imp(const std::string& name, const std::string& type, bool optional = false,
                     const std::string& def = {}, const std::string& text = {}) {
    fm_.params.push_back(system_.param(Direction::Importing, name, type, optional, def, text));
    return *this;
  }
  ModuleBuilder& exp(const std::string& name, const std::string& type, const std::string& text = {}) {
    fm_.params.push_back(system_.param(Direction::Exporting, name, type, false, {}, text));
    return *this;
  }
  ModuleBuilder& chg(const std::string& name, const std::string& type, bool optional = false,
                     const std::string& def = {}, const std::string& text = {}) {
    fm_.params.push_back(system_.param(Direction::Changing, name, type, optional, def, text));
    return *this;
  }
  ModuleBuilder& tab(const std::string& name, const std::string& type, bool optional = false,
                     const std::string& text = {}) {
    fm_.params.push_back(system_.param(Direction::Tables, name, type, optional, {}, text));
    return *this;
  }
  ModuleBuilder& exc(const std::string& name, const std::string& text = {}) {
    fm_.exceptions.push_back({name, text});
    return *this;
  }
  void install(Handler handler) {
    fm_.handler = std::move(handler);
    system_.functions().add(std::move(fm_));
  }

 private:
  System& system_;
  FunctionModule fm_;
};

}  // namespace vsim
