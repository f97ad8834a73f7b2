#pragma once

#include <string>

namespace fl {
using ustring = std::u16string;
}
