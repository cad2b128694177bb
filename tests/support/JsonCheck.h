#pragma once

#include <string>

namespace testing_support {

// Whether text is exactly one well-formed JSON value (RFC 8259), optionally
// surrounded by white space. Strings must be valid UTF-8 with valid escapes.
bool isJson(const std::string& text);

// Whether text is one well-formed JSON object.
bool isJsonObject(const std::string& text);

}  // namespace testing_support
