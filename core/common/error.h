#pragma once

#include <stdexcept>
#include <string>

namespace norvane {

// Base of every typed error the engines throw. The message is the fixed,
// user-facing text of the error case; faces (CLI, GUI) only add prefixes.
class Error : public std::runtime_error {
public:
    explicit Error(const std::string& message) : std::runtime_error(message) {}
    std::string message() const { return what(); }
};

// The description a user sees for any exception: the message of our own errors,
// the operating system's text for file errors, what() for anything else.
std::string describeError(const std::exception& e);

}  // namespace norvane
