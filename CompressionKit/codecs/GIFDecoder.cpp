// SPDX-License-Identifier: Apache-2.0
// SPDX-FileCopyrightText: The Tidewell authors

#include "CompressionKit/codecs/GIFDecoder.h"

#include <gif_lib.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tidewell {
namespace {

/// What becomes of a frame's area before the next frame is drawn (GIF89a, section 23).
enum class Disposal { keep, clear, previous };

struct Control {
  Disposal disposal = Disposal::keep;
  std::optional<int> transparentIndex;
  double delay = 0;  ///< seconds
};

using Area = GIFAnimation::Area;

/// Of the canvas, over all frames: each is looked at as a whole.
constexpr std::int64_t maximumPixels = std::int64_t{1} << 36;

struct CloseGIF {
  void operator()(GifFileType* gif) const { DGifCloseFile(gif, nullptr); }
};
using Gif = std::unique_ptr<GifFileType, CloseGIF>;

struct Input {
  std::FILE* file;
  const StopToken& stop;
};

/// Reads nothing more once a stop was requested.
Gif openGif(Input& input) {
  std::rewind(input.file);
  const auto read = [](GifFileType* gif, GifByteType* bytes, int count) {
    const auto& [file, stop] = *static_cast<Input*>(gif->UserData);
    return stop.stopRequested()
               ? 0
               : static_cast<int>(std::fread(bytes, 1, static_cast<std::size_t>(count), file));
  };
  int error = 0;
  Gif gif(DGifOpen(&input, read, &error));
  if (!gif) {
    input.stop.throwIfStopped();
    throw ImageDecodeError("no GIF header");
  }
  return gif;
}

/// Reads the blocks of a file one after the other. Missing trailers and data behind the trailer end it
/// quietly.
class BlockReader {
 public:
  explicit BlockReader(const Input& input) : input_(input), gif_(openGif(input_)) {}

  GifFileType& gif() { return *gif_; }
  const Control& control() const { return control_; }
  std::optional<std::int64_t> loopCount() const { return loopCount_; }

  /// Goes to the next frame and reads its description; false at the end of the animation, or of our time.
  bool nextFrame() {
    control_ = {};
    for (;;) {
      GifRecordType type = UNDEFINED_RECORD_TYPE;
      if (DGifGetRecordType(gif_.get(), &type) == GIF_ERROR) return false;
      switch (type) {
        case IMAGE_DESC_RECORD_TYPE:
          forgetFrames();
          // A description that is cut off still announces a frame; decoding it fails.
          complete_ = DGifGetImageDesc(gif_.get()) == GIF_OK;
          return true;
        case EXTENSION_RECORD_TYPE:
          if (!readExtension()) return false;
          break;
        default:
          return false;
      }
    }
  }

  void throwIfStopped() const { input_.stop.throwIfStopped(); }

  /// Whether the frame's description could be read.
  bool isComplete() const { return complete_; }

  /// Passes over the frame's data without decompressing it; false when the file ends in it.
  bool skipFrame() {
    int size = 0;
    GifByteType* block = nullptr;
    if (!complete_ || DGifGetCode(gif_.get(), &size, &block) == GIF_ERROR) return false;
    while (block) {
      if (DGifGetCodeNext(gif_.get(), &block) == GIF_ERROR) return false;
    }
    return true;
  }

 private:
  /// giflib keeps a description and a palette of every frame that it meets.
  void forgetFrames() {
    GifFreeSavedImages(gif_.get());
    gif_->SavedImages = nullptr;
    gif_->ImageCount = 0;
  }

  bool readExtension() {
    int code = 0;
    GifByteType* block = nullptr;  // a length byte and the data
    if (DGifGetExtension(gif_.get(), &code, &block) == GIF_ERROR) return false;
    bool looping = false;
    if (block && code == GRAPHICS_EXT_FUNC_CODE && block[0] >= 4) readControl(block + 1);
    if (block && code == APPLICATION_EXT_FUNC_CODE && block[0] == 11) {
      looping =
          std::memcmp(block + 1, "NETSCAPE2.0", 11) == 0 || std::memcmp(block + 1, "ANIMEXTS1.0", 11) == 0;
    }
    while (block) {
      if (DGifGetExtensionNext(gif_.get(), &block) == GIF_ERROR) return false;
      if (block && looping && block[0] >= 3 && (block[1] & 7) == 1) loopCount_ = block[2] | block[3] << 8;
    }
    return true;
  }

  void readControl(const GifByteType* data) {
    const int disposal = data[0] >> 2 & 7;
    control_.disposal = disposal == 2 ? Disposal::clear : disposal == 3 ? Disposal::previous : Disposal::keep;
    control_.delay = (data[1] | data[2] << 8) / 100.0;
    control_.transparentIndex = (data[0] & 1) != 0 ? std::optional<int>(data[3]) : std::nullopt;
  }

  Input input_;
  Gif gif_;
  Control control_;
  std::optional<std::int64_t> loopCount_;
  bool complete_ = false;
};

/// Draws the frames of an animation onto one canvas, in order.
class Composer {
 public:
  Composer(const Input& input, std::int64_t width, std::int64_t height)
      : blocks_(input),
        width_(width),
        height_(height),
        canvas_(static_cast<std::size_t>(width * height) * 4) {}

  std::size_t nextIndex() const { return nextIndex_; }
  const std::vector<std::uint8_t>& canvas() const { return canvas_; }
  /// By the last frame: what it cleared of the one before, and what it drew.
  std::array<Area, 2> changed() const {
    if (nextIndex_ == 1) return {Area{.width = width_, .height = height_}, Area{}};
    return {disposed_, area_};
  }

  void drawNext() {
    blocks_.throwIfStopped();
    disposed_ = disposal_ == Disposal::keep ? Area{} : area_;
    dispose();
    if (!blocks_.nextFrame() || !blocks_.isComplete()) throw ImageDecodeError("frame cut off");
    const GifImageDesc& frame = blocks_.gif().Image;
    // A few bytes decompress to as much as a frame claims, on whatever canvas.
    if (std::int64_t{frame.Width} * frame.Height > ImageLimits::maximumResidentBytes / 4) {
      throw ImageDecodeError("frame of impossible size");
    }
    area_ = clipped({.left = frame.Left, .top = frame.Top, .width = frame.Width, .height = frame.Height});
    disposal_ = blocks_.control().disposal;
    if (disposal_ == Disposal::previous) save();
    draw(frame);
    ++nextIndex_;
  }

 private:
  Area clipped(Area area) const {
    area.width = std::max<std::int64_t>(0, std::min(area.width, width_ - area.left));
    area.height = std::max<std::int64_t>(0, std::min(area.height, height_ - area.top));
    return area.width > 0 && area.height > 0 ? area : Area{};
  }

  /// Calls `use` with each row of the last frame's area on the canvas.
  template <typename Use>
  void eachRow(Use use) {
    const auto bytes = static_cast<std::size_t>(area_.width) * 4;
    for (std::int64_t y = 0; bytes > 0 && y < area_.height; ++y) {
      use(canvas_.data() + ((area_.top + y) * width_ + area_.left) * 4, bytes);
    }
  }

  void save() {
    saved_.clear();
    eachRow(
        [&](const std::uint8_t* row, std::size_t bytes) { saved_.insert(saved_.end(), row, row + bytes); });
  }

  void dispose() {
    if (disposal_ == Disposal::clear) {
      eachRow([](std::uint8_t* row, std::size_t bytes) { std::memset(row, 0, bytes); });
    } else if (disposal_ == Disposal::previous) {
      std::size_t at = 0;
      eachRow([&](std::uint8_t* row, std::size_t bytes) {
        std::memcpy(row, saved_.data() + at, bytes);
        at += bytes;
      });
    }
    disposal_ = Disposal::keep;
  }

  /// The bytes of each pixel value: opaque colours, and zeros for what must not be drawn.
  void fillColors(const ColorMapObject* map) {
    colors_.fill({});
    for (int i = 0; map && i < map->ColorCount; ++i) {
      const GifColorType& color = map->Colors[i];
      const std::uint8_t bytes[] = {color.Red, color.Green, color.Blue, 255};
      std::memcpy(&colors_[static_cast<std::size_t>(i)], bytes, 4);
    }
    if (const auto index = blocks_.control().transparentIndex) colors_[static_cast<std::size_t>(*index)] = 0;
  }

  void draw(const GifImageDesc& frame) {
    fillColors(frame.ColorMap ? frame.ColorMap : blocks_.gif().SColorMap);
    line_.resize(static_cast<std::size_t>(std::max(frame.Width, 1)));
    if (frame.Width < 1 || frame.Height < 1) {
      if (!blocks_.skipFrame()) throw ImageDecodeError("frame cut off");
      return;
    }
    constexpr int firstRows[] = {0, 4, 2, 1}, steps[] = {8, 8, 4, 2};
    if (!frame.Interlace) {
      for (int y = 0; y < frame.Height; ++y) drawLine(frame, y);
      return;
    }
    for (int pass = 0; pass < 4; ++pass) {
      for (int y = firstRows[pass]; y < frame.Height; y += steps[pass]) drawLine(frame, y);
    }
  }

  void drawLine(const GifImageDesc& frame, int y) {
    blocks_.throwIfStopped();
    if (DGifGetLine(&blocks_.gif(), line_.data(), frame.Width) == GIF_ERROR) {
      throw ImageDecodeError("frame cut off or damaged");
    }
    if (y >= area_.height || area_.width == 0) return;
    std::uint8_t* to = canvas_.data() + ((area_.top + y) * width_ + area_.left) * 4;
    for (std::int64_t x = 0; x < area_.width; ++x, to += 4) {
      const std::uint32_t color = colors_[line_[static_cast<std::size_t>(x)]];
      std::uint32_t shown = 0;
      std::memcpy(&shown, to, 4);
      shown = color != 0 ? color : shown;  // which of them is noise in many a frame: no branch
      std::memcpy(to, &shown, 4);
    }
  }

  BlockReader blocks_;
  std::int64_t width_, height_;
  std::vector<std::uint8_t> canvas_, saved_;
  std::vector<GifPixelType> line_;
  std::array<std::uint32_t, 256> colors_{};
  Area area_, disposed_;
  Disposal disposal_ = Disposal::keep;
  std::size_t nextIndex_ = 0;
};

class CanvasReader final : public RowReader {
 public:
  CanvasReader(const std::vector<std::uint8_t>& canvas, const StopToken& stop, std::int64_t width,
               std::int64_t height)
      : canvas_(canvas), stop_(stop), width_(width), height_(height) {}
  std::int64_t width() const override { return width_; }
  std::int64_t height() const override { return height_; }
  void read(std::span<std::uint8_t> row) override {
    stop_.throwIfStopped();
    if (next_ >= height_) throw ImageDecodeError("read past the last row");
    std::copy_n(canvas_.begin() + next_ * width_ * 4, row.size(), row.begin());
    ++next_;
  }
  void skip(std::int64_t count) override {
    if (count > height_ - next_) throw ImageDecodeError("read past the last row");
    next_ += count;
  }

 private:
  const std::vector<std::uint8_t>& canvas_;
  const StopToken& stop_;
  std::int64_t width_, height_, next_ = 0;
};

class GIFSource final : public GIFAnimation {
 public:
  GIFSource(const ImageInput& input, StopToken stop) : stop_(std::move(stop)), file_(input.stream()) {
    BlockReader blocks({file_.get(), stop_});
    width_ = blocks.gif().SWidth;
    height_ = blocks.gif().SHeight;
    bool cleared = false;  // by the frame before
    while (blocks.nextFrame()) {
      if (delays_.empty()) takeFirstFrame(blocks.gif().Image);
      hasAlpha_ = hasAlpha_ || cleared || blocks.control().transparentIndex.has_value();
      cleared = blocks.control().disposal == Disposal::clear;
      delays_.push_back(blocks.control().delay);
      if (!blocks.skipFrame()) break;
    }
    stop_.throwIfStopped();
    loopCount_ = blocks.loopCount();
    const auto frames = static_cast<std::int64_t>(delays_.size());
    if (width_ * height_ > 0 && frames > maximumPixels / (width_ * height_)) {
      throw ImageDecodeError("too many pixels in all frames");
    }
  }

  Container container() const override { return Container::gif; }
  std::size_t count() override { return delays_.size(); }

  ImageProperties properties(std::size_t index) override {
    ImageProperties properties;
    properties.width = width_;
    properties.height = height_;
    properties.hasAlpha = hasAlpha_;
    properties.colorSpaceName = sRGBName;
    properties.delay = delays_.at(index);
    properties.loopCount = loopCount_;
    properties.color.srgb = true;
    return properties;
  }

  std::unique_ptr<RowReader> rows(std::size_t index, std::int64_t) override {
    return std::make_unique<CanvasReader>(composed(index).canvas(), stop_, width_, height_);
  }

  Canvas canvas(std::size_t index) override {
    const Composer& frame = composed(index);
    return {.width = width_, .height = height_, .pixels = frame.canvas(), .changed = frame.changed()};
  }

 private:
  const Composer& composed(std::size_t index) {
    stop_.throwIfStopped();
    if (index >= delays_.size()) throw ImageDecodeError("no such frame");
    // The canvas, and the part of it that "restore to previous" keeps.
    if (width_ < 1 || height_ < 1 || width_ * 8 > ImageLimits::maximumResidentBytes / height_) {
      throw ImageDecodeError("canvas of impossible size");
    }
    try {
      if (!composer_ || composer_->nextIndex() > index + 1)
        composer_ = std::make_unique<Composer>(Input{file_.get(), stop_}, width_, height_);
      while (composer_->nextIndex() <= index) composer_->drawNext();
    } catch (...) {
      composer_.reset();  // it stands somewhere inside a frame
      stop_.throwIfStopped();
      throw;
    }
    return *composer_;
  }

  void takeFirstFrame(const GifImageDesc& frame) {
    // A file without a screen size shows as large as its first frame.
    if (width_ == 0) width_ = frame.Left + frame.Width;
    if (height_ == 0) height_ = frame.Top + frame.Height;
    hasAlpha_ = frame.Left > 0 || frame.Top > 0 || frame.Left + frame.Width < width_ ||
                frame.Top + frame.Height < height_;
  }

  StopToken stop_;
  ImageInput::Stream file_;
  std::int64_t width_ = 0, height_ = 0;
  bool hasAlpha_ = false;  ///< some frame may show what is behind it
  std::optional<std::int64_t> loopCount_;
  std::vector<double> delays_;  ///< one per frame
  std::unique_ptr<Composer> composer_;
};

}  // namespace

bool looksLikeGIF(std::string_view head) {
  return head.starts_with("GIF87a") || head.starts_with("GIF89a");
}

std::unique_ptr<ImageSource> openGIF(const ImageInput& input, const StopToken& stop) {
  return std::make_unique<GIFSource>(input, stop);
}

std::unique_ptr<GIFAnimation> openAnimation(const ImageInput& input, const StopToken& stop) {
  return std::make_unique<GIFSource>(input, stop);
}

std::shared_ptr<GIFAnimation> AnimationFile::open(const StopToken& stop) const {
  return begun ? begun : openAnimation(ImageInput(url), stop);
}

}  // namespace tidewell
