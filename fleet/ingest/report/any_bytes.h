// Texts of any bytes in a JSON document. A router's names are what its neighbours announce, not
// always UTF-8, and they are to arrive as they are.
#pragma once

#include <string>
#include <string_view>

namespace fleet {

// The text with every byte that is no part of valid UTF-8 replaced by a character of its own, from
// U+F780 to U+F7FF of the private use area: any JSON parser accepts it then. The bytes of such
// characters are replaced as well.
[[nodiscard]] std::string shelterBytes(std::string_view text);

// The reverse: such characters become their bytes again. One that a document which is no UTF-8 has
// as an escape (\uf780) is the only one that doesn't come back as it was.
[[nodiscard]] std::string unshelterBytes(std::string_view text);

} // namespace fleet
