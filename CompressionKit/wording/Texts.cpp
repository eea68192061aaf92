// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/wording/Texts.h"

#include <libintl.h>

#include <clocale>
#include <cstdlib>
#include <optional>

#include "CompressionKit/wording/Catalogue.h"

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

/// In place of gettext, which keeps its catalogue in the same way.
std::optional<Catalogue>& ownCatalogue() {
  static std::optional<Catalogue> catalogue;
  return catalogue;
}

/// The first of the languages ("zh_CN:en") that there is a catalogue for.
std::optional<Catalogue> firstCatalogue(std::string languages, const URL& share) {
  for (languages += ':'; !languages.empty(); languages.erase(0, languages.find(':') + 1)) {
    const std::string language = languages.substr(0, languages.find_first_of(":.@"));
    if (language.starts_with("en")) break;  // the texts of the source
    if (language.empty() || language.find('/') != std::string::npos) continue;
    for (const std::string& name : {language, language.substr(0, language.find('_'))}) {
      auto found = Catalogue::read(share.appending(name + "/LC_MESSAGES/tidewell.mo"));
      if (found) return found;
    }
  }
  return std::nullopt;
}

}  // namespace

void prepareTexts(const URL& executableDirectory) {
  const URL share = executableDirectory.appending("../share/locale").standardized();
  // Only what people read: numbers and the order of names stay those of the C locale.
  const bool generated = setlocale(LC_MESSAGES, "") != nullptr;
  if (setlocale(LC_CTYPE, "") == nullptr) setlocale(LC_CTYPE, "C.UTF-8");
  bindtextdomain("tidewell", share.path().c_str());
  bind_textdomain_codeset("tidewell", "UTF-8");
  textdomain("tidewell");
  ownCatalogue().reset();
  if (generated) return;
  setlocale(LC_MESSAGES, "C.UTF-8");
  setenv("LANGUAGE", wishedLocale().c_str(), 0);
  // Every catalogue has something under the empty text.
  if (*gettext("") == '\0') ownCatalogue() = firstCatalogue(std::getenv("LANGUAGE"), share);
}

const char* _(const char* text) {
  const char* own = ownCatalogue() ? ownCatalogue()->text(text) : nullptr;
  return own != nullptr ? own : gettext(text);
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
  const char* own = ownCatalogue() ? ownCatalogue()->text(one) : nullptr;
  const char* text = own != nullptr ? own : ngettext(one, many, static_cast<unsigned long>(count));
  return filled(text, {std::to_string(count)});
}

}  // namespace tidewell
