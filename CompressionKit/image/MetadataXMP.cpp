// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include <expat.h>

#include <algorithm>
#include <memory>
#include <type_traits>

#include "CompressionKit/image/MetadataPieces.h"

namespace tidewell::metadata {
namespace {

constexpr char separator = '\n';  // of namespace and name, in neither
constexpr std::string_view camera = "http://ns.google.com/photos/1.0/camera/";
constexpr std::string_view extensionName = "http://ns.adobe.com/xmp/note/\nHasExtendedXMP";
constexpr std::string_view orientationName = "http://ns.adobe.com/tiff/1.0/\nOrientation";
constexpr std::string_view mediaNames[] = {"MotionPhoto", "MicroVideo"};  // how their names in `camera` begin
/// Namespaces of nothing but gain maps and directories of further pictures.
constexpr std::string_view directories[] = {
    "http://ns.google.com/photos/1.0/container/",
    "http://ns.google.com/photos/dd/",
    "http://ns.adobe.com/hdr-gain-map/",
    "http://ns.apple.com/HDRGainMap/",
};

template <typename Range, typename Question>
bool any(const Range& range, Question question) {
  return std::any_of(std::begin(range), std::end(range), question);
}

bool contains(std::string_view text, std::string_view part) {
  return text.find(part) != std::string_view::npos;
}

/// A well-formed packet on its way through the parser; collects what to cut out.
class Cutter {
 public:
  Cutter(const XMPOmissions& omissions, std::string_view packet)
      : omissions_(omissions), packet_(packet), parser_(XML_ParserCreateNS("UTF-8", separator)) {
    XML_SetUserData(parser_.get(), this);
    XML_SetElementHandler(
        parser_.get(),
        [](void* self, const XML_Char* name, const XML_Char** attributes) {
          static_cast<Cutter*>(self)->start(name, attributes);
        },
        [](void* self, const XML_Char*) { static_cast<Cutter*>(self)->end(); });
    // An entity could hide a name from whoever searches the text.
    XML_SetStartDoctypeDeclHandler(parser_.get(),
                                   [](void* self, const XML_Char*, const XML_Char*, const XML_Char*, int) {
                                     XML_StopParser(static_cast<Cutter*>(self)->parser_.get(), XML_FALSE);
                                   });
  }

  std::optional<std::string> cut() {
    const auto end = packet_.find_last_not_of('\0');  // some writers pad with it
    const int size = end == std::string_view::npos ? 0 : static_cast<int>(end + 1);
    if (XML_Parse(parser_.get(), packet_.data(), size, XML_TRUE) != XML_STATUS_OK) return std::nullopt;
    std::string output;
    std::size_t done = 0;
    for (const auto& [from, to] : cuts_) {
      output += packet_.substr(done, from - done);
      done = to;
    }
    return output.append(packet_.substr(done));
  }

 private:
  bool isOmitted(std::string_view name) const {
    if (omissions_.extension && name == extensionName) return true;
    if (omissions_.orientation && name == orientationName) return true;
    if (any(directories, [&](std::string_view it) { return name.starts_with(it); })) return true;
    const std::size_t local = camera.size() + 1;
    return name.starts_with(camera) && name.size() > local &&
           any(mediaNames, [&](std::string_view it) { return name.substr(local).starts_with(it); });
  }

  std::size_t position() const { return static_cast<std::size_t>(XML_GetCurrentByteIndex(parser_.get())); }
  std::size_t bytes() const { return static_cast<std::size_t>(XML_GetCurrentByteCount(parser_.get())); }

  void start(const XML_Char* name, const XML_Char** attributes) {
    if (!omittedAt_) {
      if (isOmitted(name)) {
        omittedAt_ = depth_;
        from_ = position();
      } else {
        cutAttributes(attributes);
      }
    }
    ++depth_;
  }

  void end() {
    --depth_;
    if (omittedAt_ != depth_) return;
    omittedAt_.reset();
    cuts_.emplace_back(from_, position() + bytes());
  }

  /// The parser has found the tag well-formed, and tells the names in their order, those of namespaces aside.
  void cutAttributes(const XML_Char** attributes) {
    constexpr std::string_view blanks = " \t\r\n";
    const std::string_view tag = packet_.substr(position(), bytes());
    std::size_t after = tag.find_first_of(" \t\r\n/>");
    while (*attributes != nullptr) {
      const std::size_t name = tag.find_first_not_of(blanks, after);
      const std::size_t quote = tag.find_first_of("\"'", name);
      if (quote == std::string_view::npos) return;
      const std::size_t end = tag.find(tag[quote], quote + 1) + 1;
      const std::string_view word = tag.substr(name, tag.find_first_of(" \t\r\n=", name) - name);
      if (word != "xmlns" && !word.starts_with("xmlns:")) {
        if (isOmitted(*attributes)) cuts_.emplace_back(position() + after, position() + end);
        attributes += 2;
      }
      after = end;
    }
  }

  struct Free {
    void operator()(XML_Parser parser) const { XML_ParserFree(parser); }
  };
  XMPOmissions omissions_;
  std::string_view packet_;
  std::unique_ptr<std::remove_pointer_t<XML_Parser>, Free> parser_;
  std::vector<std::pair<std::size_t, std::size_t>> cuts_;
  int depth_ = 0;
  std::optional<int> omittedAt_;  ///< the depth of an element that goes whole
  std::size_t from_ = 0;          ///< where that begins
};

/// UTF-16 has its names between zeros.
std::string withoutZeros(std::string_view text) {
  std::string result(text);
  std::erase(result, '\0');
  return result;
}

/// The property or attribute has a value that begins so.
bool says(std::string_view packet, std::string_view name, std::string_view value) {
  for (auto at = packet.find(name); at != std::string_view::npos; at = packet.find(name, at + 1)) {
    const auto start = packet.find_first_not_of(" \t\r\n=\"'>", at + name.size());
    if (start != std::string_view::npos && start > at + name.size() &&
        packet.substr(start).starts_with(value)) {
      return true;
    }
  }
  return false;
}

}  // namespace

bool namesWhatLiesBehind(std::string_view xmp) {
  const std::string text = withoutZeros(xmp);
  return any(directories, [&](std::string_view it) { return contains(text, it); }) ||
         (contains(text, camera) && any(mediaNames, [&](std::string_view it) { return contains(text, it); }));
}

bool namesVideo(std::string_view packet) {
  return any(mediaNames, [&](std::string_view name) { return says(packet, name, "1"); }) ||
         says(packet, "Mime", "video/");
}

std::optional<std::string> xmpWithout(const XMPOmissions& omissions, std::string_view packet) {
  const bool holdsSome = namesWhatLiesBehind(packet) ||
                         (omissions.extension && contains(packet, "HasExtendedXMP")) ||
                         (omissions.orientation && contains(withoutZeros(packet), "Orientation"));
  if (!holdsSome) return std::string(packet);
  return Cutter(omissions, packet).cut();
}

}  // namespace tidewell::metadata
