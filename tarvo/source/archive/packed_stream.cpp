#include "archive/packed_stream.h"

#include <lzma.h>
#include <unistd.h>
#include <zlib.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <limits>
#include <memory>
#include <system_error>
#include <utility>

#include "files/bound_library.h"
#include "files/file_descriptor.h"
#include "tarvo/packed_file.h"

namespace tarvo {
namespace {

constexpr SourceFile kPackedStream{"tarvo/source/packed_stream"};
constexpr std::size_t kStreamPieceBytes = 64 * 1024;
constexpr const char* kZlibName = "libz.so.1";
constexpr const char* kLzmaName = "liblzma.so.5";

using Piece = std::array<std::uint8_t, kStreamPieceBytes>;

/// What a step of unpacking has come to.
enum class Step { GoesOn, End, Damaged, TooMuchMemory };

/// Packed bytes that are there, and room for unpacked ones; a step takes of both.
struct Stream {
  const std::uint8_t* input = nullptr;
  std::size_t inputSize = 0;
  std::uint8_t* output = nullptr;
  std::size_t outputSize = 0;
  bool isAllInput = false;  ///< nothing comes behind `input`
};

class Unpacker {
 public:
  virtual ~Unpacker() = default;
  virtual Step Run(Stream& stream) = 0;
};

// --- gzip ----------------------------------------------------------------------------------------

struct Zlib {
  decltype(&::inflateInit2_) init = nullptr;
  decltype(&::inflate) inflate = nullptr;
  decltype(&::inflateReset) reset = nullptr;
  decltype(&::inflateEnd) end = nullptr;
  String problem = LibraryBinder(kZlibName)
                       .Bind("inflateInit2_", init)
                       .Bind("inflate", inflate)
                       .Bind("inflateReset", reset)
                       .Bind("inflateEnd", end)
                       .Problem();

  static const Zlib& Get() {
    static const Zlib library;
    return library;
  }
};

class GzipUnpacker final : public Unpacker {
 public:
  explicit GzipUnpacker(const Zlib& library) : library_(library) {
    constexpr int kGzip = 16;  // added to the bits of the window: with gzip's header
    isOpen_ = library_.init(&stream_, kGzip + MAX_WBITS, ZLIB_VERSION, sizeof stream_) == Z_OK;
  }
  ~GzipUnpacker() override { library_.end(&stream_); }

  Step Run(Stream& stream) override {
    if (!isOpen_) return Step::TooMuchMemory;
    if (isBetween_) {
      // Another packed file, or what is not of it: a tape's zeros, say.
      if (stream.inputSize == 0 || stream.input[0] != static_cast<std::uint8_t>(kGzipStart[0]))
        return Step::End;
      library_.reset(&stream_);
      isBetween_ = false;
    }
    stream_.next_in = const_cast<Bytef*>(stream.input);
    stream_.avail_in = static_cast<uInt>(stream.inputSize);
    stream_.next_out = stream.output;
    stream_.avail_out = static_cast<uInt>(stream.outputSize);
    const int status = library_.inflate(&stream_, Z_NO_FLUSH);
    stream.input = stream_.next_in;
    stream.inputSize = stream_.avail_in;
    stream.output = stream_.next_out;
    stream.outputSize = stream_.avail_out;
    if (status == Z_MEM_ERROR) return Step::TooMuchMemory;
    isBetween_ = status == Z_STREAM_END;
    if (isBetween_ && stream.inputSize == 0 && stream.isAllInput) return Step::End;
    return isBetween_ || status == Z_OK || status == Z_BUF_ERROR ? Step::GoesOn : Step::Damaged;
  }

 private:
  const Zlib& library_;
  z_stream stream_{};
  bool isOpen_ = false;
  bool isBetween_ = false;
};

// --- xz ------------------------------------------------------------------------------------------

struct Lzma {
  decltype(&::lzma_stream_decoder) init = nullptr;
  decltype(&::lzma_code) code = nullptr;
  decltype(&::lzma_end) end = nullptr;
  String problem = LibraryBinder(kLzmaName)
                       .Bind("lzma_stream_decoder", init)
                       .Bind("lzma_code", code)
                       .Bind("lzma_end", end)
                       .Problem();

  static const Lzma& Get() {
    static const Lzma library;
    return library;
  }
};

class XzUnpacker final : public Unpacker {
 public:
  explicit XzUnpacker(const Lzma& library) : library_(library) {
    isOpen_ = library_.init(&stream_, kMostXzMemory, LZMA_CONCATENATED) == LZMA_OK;
  }
  ~XzUnpacker() override { library_.end(&stream_); }

  Step Run(Stream& stream) override {
    if (!isOpen_) return Step::TooMuchMemory;
    stream_.next_in = stream.input;
    stream_.avail_in = stream.inputSize;
    stream_.next_out = stream.output;
    stream_.avail_out = stream.outputSize;
    const lzma_ret status = library_.code(&stream_, stream.isAllInput ? LZMA_FINISH : LZMA_RUN);
    stream.input = stream_.next_in;
    stream.inputSize = stream_.avail_in;
    stream.output = stream_.next_out;
    stream.outputSize = stream_.avail_out;
    if (status == LZMA_STREAM_END) return Step::End;
    if (status == LZMA_MEM_ERROR || status == LZMA_MEMLIMIT_ERROR) return Step::TooMuchMemory;
    return status == LZMA_OK || status == LZMA_BUF_ERROR ? Step::GoesOn : Step::Damaged;
  }

 private:
  const Lzma& library_;
  lzma_stream stream_ = LZMA_STREAM_INIT;
  bool isOpen_ = false;
};

// --- Both ----------------------------------------------------------------------------------------

template <typename Kind, typename Library>
Result<std::unique_ptr<Unpacker>> MakeUnpacker(const Library& library) {
  if (!library.problem.IsEmpty()) return Error::IllegalState(kPackedStream.Here(), library.problem);
  return std::unique_ptr<Unpacker>(std::make_unique<Kind>(library));
}

Result<std::unique_ptr<Unpacker>> UnpackerFor(std::string_view start) {
  if (start.starts_with(kGzipStart)) return MakeUnpacker<GzipUnpacker>(Zlib::Get());
  if (start.starts_with(kXzStart)) return MakeUnpacker<XzUnpacker>(Lzma::Get());
  return Error::Plain(kPackedStream.Here(), "it is packed neither by gzip nor by xz");
}

/// Reads pieces of a file.
class Input {
 public:
  explicit Input(int file) : file_(file) {}

  /// Gives the stream the next piece, once it has used up the one before.
  Result<void> Refill(Stream& stream) {
    if (stream.inputSize != 0 || stream.isAllInput) return {};
    const ssize_t size = Uninterrupted([&] { return read(file_, piece_.data(), piece_.size()); });
    if (size < 0) return Error::Plain(kPackedStream.Here(), std::generic_category().message(errno));
    stream.input = piece_.data();
    stream.inputSize = static_cast<std::size_t>(size);
    stream.isAllInput = size == 0;
    return {};
  }

 private:
  const int file_;
  Piece piece_;
};

/// What is wrong when a step made nothing of what is there, or said so.
const char* DamageAt(Step step, const Stream& stream, bool hasMoved) {
  if (step == Step::Damaged) return "it is damaged";
  if (step == Step::TooMuchMemory) return "unpacking it takes too much memory";
  if (hasMoved) return nullptr;
  return stream.isAllInput ? "it is cut off" : "it is damaged";
}

Result<PackedEnd> Run(Unpacker& unpacker, Input& input, Stream stream, const TakeBytes& take) {
  Piece unpacked;
  for (;;) {
    if (auto filled = input.Refill(stream); !filled) return filled.GetError();
    stream.output = unpacked.data();
    stream.outputSize = unpacked.size();
    const std::size_t before = stream.inputSize;
    const Step step = unpacker.Run(stream);
    const std::size_t made = unpacked.size() - stream.outputSize;
    const bool hasMoved = made != 0 || stream.inputSize != before;
    if (auto taken = take({reinterpret_cast<const char*>(unpacked.data()), made}); !taken)
      return taken.GetError();
    if (step == Step::End) return PackedEnd();
    if (const char* damage = DamageAt(step, stream, hasMoved)) return PackedEnd{damage};
  }
}

}  // namespace

Result<PackedEnd> UnpackStream(int file, const TakeBytes& take) {
  Input input(file);
  Stream stream;
  if (auto filled = input.Refill(stream); !filled) return filled.GetError();
  const auto unpacker =
      UnpackerFor({reinterpret_cast<const char*>(stream.input), stream.inputSize});
  if (!unpacker) return unpacker.GetError();
  return Run(**unpacker, input, stream, take);
}

}  // namespace tarvo
