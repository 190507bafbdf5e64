#include "Platform/files/LetterCase.h"

#include <locale.h>
#include <wctype.h>

#include "Platform/text/TextEncoding.h"

namespace vesko {
namespace {

/// The program's own locale may know capital letters of English only, or differ from machine to machine.
locale_t unicodeLocale() {
  static const locale_t locale = ::newlocale(LC_CTYPE_MASK, "C.UTF-8", nullptr);
  return locale;
}

char32_t smallLetter(char32_t letter) {
  if (unicodeLocale() == nullptr) return letter >= U'A' && letter <= U'Z' ? letter + (U'a' - U'A') : letter;
  return static_cast<char32_t>(::towlower_l(static_cast<wint_t>(letter), unicodeLocale()));
}

}  // namespace

std::u32string smallLetters(std::string_view text) {
  std::u32string letters;
  while (!text.empty()) {
    const Utf8Character character = firstUtf8Character(text);
    const bool isCharacter = character.length > 0;
    letters += smallLetter(isCharacter ? character.codePoint : static_cast<unsigned char>(text.front()));
    text.remove_prefix(isCharacter ? character.length : 1);
  }
  return letters;
}

}  // namespace vesko
