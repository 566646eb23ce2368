#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace Kiv::Export
{

// What the generated pages need to put text and data into HTML safely.

// Text for an element's content or an attribute value.
std::string EscapeHtml(std::string_view text);

// JSON to place inside a <script> element: every '<' becomes \u003c (it only occurs inside
// strings), so that no "</script" or "<!--" in a header value can end or upset the element.
std::string JsonForScript(std::string_view json);

// bytes in base64 (RFC 4648, padded), appended to out.
void AppendBase64(const void* bytes, std::size_t count, std::string& out);

// float32 samples as little-endian bytes in base64, as the pages' Float32Array reads them.
std::string Float32Base64(const float* values, std::size_t count);

} // namespace Kiv::Export
