#pragma once

#include <string>

namespace norvane {

// A fresh random UUID in its 36-character upper-case hyphenated form.
std::string makeUUID();

}  // namespace norvane
