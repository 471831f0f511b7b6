#ifndef TOOLS_KIVCTL_TEXT_H
#define TOOLS_KIVCTL_TEXT_H

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kiv::kivctl {

/// The text with every byte that does not print as itself as \xNN; a backslash and a quotation
/// mark too, so that the text can be read back.
std::string escape(std::string_view bytes);

/// A value in a message: escaped, in quotation marks, and cut to a length that a line can hold.
std::string quote(std::string_view value);

/// What is wrong with a file in JSON, without what was read last: that may be a password.
std::string withoutContent(const std::string& error);

/// ASCII only, as the library and the modem fold APN names.
std::string lowered(std::string_view text);

/// Without blanks at either end.
std::string_view trimmed(std::string_view text);

/// The pieces between separators; one empty piece of an empty text.
std::vector<std::string_view> split(std::string_view text, char separator);

/// Whether the text is made of so many digits.
bool areDigits(std::string_view text, size_t fewest, size_t most);

/// A whole number from 0 on; none for any other text.
std::optional<int> readNumber(std::string_view text, int most);

/// The word that was meant by a mistyped one; empty if none is near.
std::string nearest(std::string_view word, const std::vector<std::string>& words);

}  // namespace kiv::kivctl

#endif
