// A store's text for people: without its password.
#pragma once

#include <string>

namespace vu::store {

// The same text with "***" in the place of the password. Where the text is malformed, rather too
// much is hidden than too little. Text that names no server is given back as it is.
std::string without_password(const std::string& store);

}  // namespace vu::store
