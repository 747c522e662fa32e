#include "core/common/uuid.h"

#include <uuid/uuid.h>

namespace norvane {

std::string makeUUID() {
    uuid_t id;
    uuid_generate_random(id);
    char text[37];
    uuid_unparse_upper(id, text);
    return std::string(text);
}

}  // namespace norvane
