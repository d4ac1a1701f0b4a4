#include "tests/unit/programmers/expander/ExpanderScript.h"

#include <utility>

namespace {

ExpanderScript* current = nullptr;

}  // namespace

ExpanderScript::ExpanderScript(std::string slotDirectory) : directory(std::move(slotDirectory)) {
  current = this;
}

ExpanderScript::~ExpanderScript() { current = nullptr; }

ExpanderScript* ExpanderScript::Current() { return current; }
