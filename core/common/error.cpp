#include "core/common/error.h"

#include <filesystem>
#include <system_error>

namespace norvane {

std::string describeError(const std::exception& e) {
    if (const auto* fsError = dynamic_cast<const std::filesystem::filesystem_error*>(&e)) {
        std::string text = fsError->code().message();
        if (!fsError->path1().empty()) {
            text += ": " + fsError->path1().string();
        }
        return text;
    }
    return e.what();
}

}  // namespace norvane
