// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include <cstdio>
#include <initializer_list>
#include <string>
#include <vector>

#include "CompressionKit/codecs/ColorProfile.h"
#include "CompressionKit/platform/Base64.h"
#include "CompressionKit/platform/Files.h"
#include "CompressionKit/undo/UndoRecord.h"
#include "support/HEICSample.h"
#include "support/TestImages.h"

/// Writes the inputs that fuzzing starts from, DIRECTORY/TARGET/NAME: small files of every kind that the
/// tests' writers know.
namespace tidewell {
namespace {

using test::number;

class Seeds {
 public:
  explicit Seeds(URL directory) : directory_(std::move(directory)) {}

  void add(std::initializer_list<const char*> targets, const std::string& bytes) {
    const std::string name = "seed-" + std::to_string(++count_);
    for (const char* target : targets) {
      const URL folder = directory_.appending(target);
      files::createDirectories(folder, 0777, files::Durability::cached);
      files::writeAtomically(folder.appending(name), bytes, files::Durability::cached);
    }
  }

  void addJPEGs();
  void addPNGs();
  void addGIFs();
  void addHEICs();
  void addTexts();

 private:
  URL directory_;
  int count_ = 0;
  const test::TemporaryFolder scratch_;
  const std::string profile_ = color::makeRGBProfile("Display P3", color::displayP3);
};

void Seeds::addJPEGs() {
  const auto add = [&](const test::JPEGFileOptions& options, int width = 43, int height = 37) {
    test::writeJPEGFile(scratch_ / "a", test::photoRaster(width, height), options);
    const std::string bytes = files::read(scratch_ / "a");
    this->add({"JPEG", "JPEGMetadata", "Metadata", "Verify"}, bytes);
    return bytes;
  };
  for (const bool progressive : {false, true}) {
    for (const auto& [across, down] : {std::pair{1, 1}, {2, 1}, {2, 2}, {4, 1}, {1, 4}})
      add({.across = across, .down = down, .progressive = progressive});
    add({.progressive = progressive, .colors = test::JPEGColors::grey, .exif = test::exifWithOrientation(6)});
    add({.quality = 30, .progressive = progressive, .colors = test::JPEGColors::inks, .icc = profile_});
  }
  add({.arithmetic = true});
  const std::string plain = add({.quality = 100}, 9, 3);
  const std::string index = std::string("MPF\0MM", 6) + number(42, 2) + number(8, 4) + number(1, 2) +
                            number(0xB001, 2) + number(4, 2) + number(1, 4) + number(2, 4) + number(0, 4);
  const std::string segment = "\xFF\xE2" + number(index.size() + 2, 2) + index;
  this->add({"JPEGMetadata", "Metadata"}, plain.substr(0, 2) + segment + plain.substr(2) + plain);
  const std::string packet = "http://ns.adobe.com/xap/1.0/" +
                             ('\0' + std::string("<a xmlns:g='http://ns.adobe.com/hdr-gain-map/1.0/' "
                                                 "g:b=\"1\"><g:c/>d</a>"));
  this->add({"Metadata"}, plain.substr(0, 2) + "\xFF\xE1" + number(packet.size() + 2, 2) + packet +
                              plain.substr(2) + number(24, 4) + "ftypmp42");
  this->add({"Metadata"}, plain.substr(0, 2) + std::string("\xFF\xE3\0\6raw\1\xFF\xE8\0\4ab", 14) +
                              plain.substr(2) + std::string("\0\0behind", 8));
}

void Seeds::addPNGs() {
  const auto add = [&](const std::string& bytes) {
    this->add({"PNG", "PNGMetadata", "Metadata", "Verify"}, bytes);
  };
  std::string alpha;
  for (const bool interlaced : {false, true}) {
    for (const auto& options : {test::PNGOptions{}, {.alpha = true}, {.icc = profile_}, {.gamma = 0.6}}) {
      test::PNGOptions all = options;
      all.interlaced = interlaced;
      test::writePNGFile(scratch_ / "a", test::photoRaster(13, 11), all);
      if (all.alpha) alpha = files::read(scratch_ / "a");
      add(files::read(scratch_ / "a"));
    }
  }
  test::writePicture(test::slopes(12, 5), scratch_ / "a", true, 16);
  add(files::read(scratch_ / "a"));
  const std::string exif = test::exifWithOrientation(8, true).substr(6);
  add(test::withChunk(alpha, "eXIf", exif));
  add(alpha.substr(0, alpha.size() - 12) + test::pngChunk("eXIf", exif) + test::pngChunk("IEND", ""));
  add(test::withChunk(alpha, "cICP", std::string("\x09\x10\0\x01", 4)));
  add(test::withChunk(alpha, "cHRM", std::string(8, '\0') + std::string(24, '\x01')));
  add(test::withChunk(alpha, "acTL", std::string(8, '\x01')));
  const std::string palette = test::pngChunk("PLTE", "abcdefghi");
  add(test::pngOfOneRow(4, 2, 3, "\x18", palette + test::pngChunk("tRNS", "\x80")));
  add(test::pngOfOneRow(8, 1, 0, "\x5a", test::pngChunk("tRNS", std::string(2, '\0'))));
  add(test::pngOfOneRow(2, 16, 4, "12345678"));
  add(test::withChunk(test::withChunk(alpha, "vpAg", "page"), "mkBF", "layers") + "behind");
}

void Seeds::addGIFs() {
  for (const bool interlaced : {false, true}) {
    test::GIFFile file;
    file.width = 19;
    file.height = 17;
    for (int disposal = 0; disposal < 4; ++disposal) {
      test::GIFFrame frame;
      frame.left = frame.top = 2 * disposal;
      frame.width = frame.height = 15;
      for (int i = 0; i < 15 * 15; ++i) frame.indexes.push_back(static_cast<std::uint8_t>(i * i % 7 % 4));
      frame.disposal = disposal;
      frame.interlaced = interlaced;
      frame.transparent = disposal % 2 == 1 ? 2 : -1;
      if (disposal == 2) frame.palette = {{0, 0, 0, 255}, {9, 8, 7, 255}, {1, 2, 3, 255}, {50, 60, 70, 255}};
      file.frames.push_back(frame);
      file.loop = disposal - 1;
      test::writeGIFFile(scratch_ / "a", file);
      add({"GIF", "Metadata", "Verify"}, files::read(scratch_ / "a"));
    }
  }
}

void Seeds::addHEICs() {
  const auto add = [&](const test::HEIFFile& file) {
    this->add({"HEIC", "HEIFBoxes", "Metadata", "Verify"}, file.bytes());
  };
  const test::HEIFFile plain = test::encodeHEIC(test::slopes(64, 48)),
                       deep = test::encodeHEIC(test::slopes(64, 48), false, 16, {"-b", "10"});
  add(plain);
  add(test::encodeHEIC(test::slopes(64, 48), true));
  add(test::HEIFFile(plain).with(test::nclx(12, 13, 6)).with(test::irot(1)).with(test::imir(1)));
  add(test::HEIFFile(plain).with(test::icc(profile_)).with(test::clap(32, 24, 3, -5)));
  add(test::HEIFFile(deep).with(test::nclx(9, 16, 9)));
  add(test::HEIFFile(deep).with(test::nclx(9, 18, 9)));
  test::HEIFFile described = plain;
  described.items.push_back({98, "Exif", false, {}, number(6, 4) + test::exifWithOrientation(6)});
  described.items.push_back({99, std::string("mime\0application/rdf+xml", 24), false, {}, "<a/>"});
  described.references = {{"cdsc", 98, {described.primary}}, {"cdsc", 99, {described.primary}}};
  add(described);
  add(test::grid({plain, plain, plain, plain}, 2, 2, 100, 90));
  test::HEIFFile identity = plain;
  identity.items.push_back({2, "iden", false, {test::ispe(64, 48), test::irot(3)}, ""});
  identity.references.push_back({"dimg", 2, {1}});
  add(identity);
}

void Seeds::addTexts() {
  UndoRecord record;
  record.id = *UUID::parse("01234567-89AB-4CDE-8F01-23456789ABCD");
  record.sessionID = *UUID::parse("FEDCBA98-7654-4210-BFED-CBA987654321");
  record.createdAt = {775000000.25};
  record.originalPath = "/home/a/照片.heic";
  record.backupName = record.id.string() + ".heic";
  record.originalBytes = 123456;
  record.replacementBytes = 4321;
  record.replacementHash = std::string(64, 'a');
  add({"UndoRecord"}, record.json());
  record.originalHash = std::string(64, '0');
  record.originalPath = "/home/\xff\xfe";
  record.convertedPath = "/home/a/b.jpg";
  record.state = UndoRecord::State::committed;
  add({"UndoRecord"}, record.json());

  const std::string file = "# settings\n[Tidewell]\nTidewellCommandToken=abc\n";
  const auto command = [](const std::string& list) {
    return "tidewell-background://compress?token=abc&files=" + base64Encoded(list);
  };
  for (const std::string& url :
       {command(R"(["/a/b.jpg","/\u00e4.png"])"), command("[]"), command(R"(["/a\u0000b","b"])"),
        std::string("tidewell-background://compress?token=a%62c&files=WyIvYSJd"),
        std::string("file://localhost/a%2Fb%20c/../d/")}) {
    add({"Command"}, file + '\0' + url);
  }
}

}  // namespace
}  // namespace tidewell

int main(int count, char** arguments) {
  if (count != 2) {
    std::fprintf(stderr, "usage: %s DIRECTORY\n", arguments[0]);
    return 2;
  }
  tidewell::Seeds seeds(tidewell::URL::file(arguments[1]));
  seeds.addJPEGs();
  seeds.addPNGs();
  seeds.addGIFs();
  if (tidewell::test::hasHEIFEncoder()) seeds.addHEICs();
  seeds.addTexts();
  return 0;
}
