#include "platform/nuv/TextRange.h"

#include <algorithm>

namespace Nuv {

namespace {

// Long or binary input must not end up whole in an error's text.
constexpr std::size_t shownCharacters = 24;

constexpr Pelm::StringView hexDigits = "0123456789abcdef";

char
lower(char character) {
   return character >= 'A' && character <= 'F' ? char(character - 'A' + 'a') : character;
}

bool
isDigit(char character) {
   return character >= '0' && character <= '9';
}

bool
isWordCharacter(char character) {
   return isDigit(character) || character == '_' || (character >= 'a' && character <= 'z') ||
          (character >= 'A' && character <= 'Z');
}

} // namespace

RangeException
TextRange::expected(Pelm::StringView wanted) const {
   Pelm::String found;
   for (char character : rest_.substr(0, shownCharacters)) {
      found += character >= ' ' && character <= '~' ? character : '?';
   }
   return RangeException("expected " + Pelm::String(wanted) +
                         (rest_.empty() ? " at the end" : ", found \"" + found + "\""));
}

void
TextRange::require(Pelm::StringView literal) {
   if (!skip(literal)) {
      throw expected("\"" + Pelm::String(literal) + "\"");
   }
}

bool
TextRange::skip(Pelm::StringView literal) {
   if (!rest_.starts_with(literal)) {
      return false;
   }
   rest_.remove_prefix(literal.size());
   return true;
}

void
TextRange::skipBlanks() {
   rest_.remove_prefix(std::min(rest_.find_first_not_of(' '), rest_.size()));
}

void
TextRange::requireEnd() const {
   if (!atEnd()) {
      throw expected("the end");
   }
}

unsigned long long
TextRange::number(unsigned long long most) {
   unsigned long long value = 0;
   std::size_t digits = 0;
   for (; digits < rest_.size() && isDigit(rest_[digits]); ++digits) {
      auto digit = unsigned(rest_[digits] - '0');
      if (digit > most || value > (most - digit) / 10) {
         throw expected("a number of at most " + std::to_string(most));
      }
      value = value * 10 + digit;
   }
   if (digits == 0) {
      throw expected("a number");
   }
   rest_.remove_prefix(digits);
   return value;
}

bool
TextRange::atHexDigit() const {
   return !rest_.empty() && hexDigits.find(lower(rest_.front())) != Pelm::StringView::npos;
}

unsigned
TextRange::hexDigit() {
   if (!atHexDigit()) {
      throw expected("a hexadecimal digit");
   }
   auto digit = hexDigits.find(lower(rest_.front()));
   rest_.remove_prefix(1);
   return unsigned(digit);
}

Pelm::StringView
TextRange::word() {
   auto end = std::find_if_not(rest_.begin(), rest_.end(), isWordCharacter);
   auto found = rest_.substr(0, std::size_t(end - rest_.begin()));
   if (found.empty()) {
      throw expected("a name");
   }
   rest_.remove_prefix(found.size());
   return found;
}

void
parseText(TextRange& range, bool& value) {
   if (range.skip("True")) {
      value = true;
   } else if (range.skip("False")) {
      value = false;
   } else {
      throw range.expected("True or False");
   }
}

} // namespace Nuv
