#include "Tidewell/Texts.h"

#include <clocale>
#include <cstdlib>

namespace tidewell {
namespace {

/// The locale that the environment asks messages to be in.
std::string wishedLocale() {
  for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    const char* value = std::getenv(variable);
    if (value != nullptr && *value != '\0') return value;
  }
  return "C";
}

}  // namespace

void prepareTexts(const URL& executableDirectory) {
  // Only what people read: numbers and the order of names stay those of the C locale.
  const bool generated = setlocale(LC_MESSAGES, "") != nullptr;
  if (setlocale(LC_CTYPE, "") == nullptr) setlocale(LC_CTYPE, "C.UTF-8");
  if (!generated && setlocale(LC_MESSAGES, "C.UTF-8") != nullptr) {
    const std::string wished = wishedLocale();
    setenv("LANGUAGE", wished.substr(0, wished.find_first_of(".@")).c_str(), 0);
  }
  const URL share = executableDirectory.appending("../share/locale").standardized();
  bindtextdomain("tidewell", share.path().c_str());
  bind_textdomain_codeset("tidewell", "UTF-8");
  textdomain("tidewell");
}

std::string filled(std::string_view pattern, std::initializer_list<std::string_view> values) {
  std::string text;
  while (!pattern.empty()) {
    const bool place = pattern.size() >= 3 && pattern[0] == '{' && pattern[2] == '}' && pattern[1] >= '1' &&
                       static_cast<std::size_t>(pattern[1] - '0') <= values.size();
    if (place) {
      text += values.begin()[pattern[1] - '1'];
    } else {
      text += pattern[0];
    }
    pattern.remove_prefix(place ? 3 : 1);
  }
  return text;
}

std::string counted(const char* one, const char* many, std::int64_t count) {
  return filled(ngettext(one, many, static_cast<unsigned long>(count)), {std::to_string(count)});
}

}  // namespace tidewell
