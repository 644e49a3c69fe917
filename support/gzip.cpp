#include "support/gzip.h"

#include <boost/iostreams/device/array.hpp>
#include <boost/iostreams/device/back_inserter.hpp>
#include <boost/iostreams/filter/gzip.hpp>
#include <boost/iostreams/filtering_streambuf.hpp>
#include <boost/iostreams/write.hpp>

namespace LifeCycle {
namespace {

namespace io = boost::iostreams;

constexpr std::streamsize kFilterBuffer = 4096;
constexpr int kWindowBits = 15;
constexpr int kMemoryLevel = 8;

char const* _Describe(io::gzip_error const& error) {
  switch (error.error()) {
    case io::gzip::bad_crc:
      return "checksum mismatch";
    case io::gzip::bad_length:
      return "length mismatch";
    case io::gzip::bad_header:
      return "bad header";
    case io::gzip::bad_footer:
      return "bad or missing trailer";
    case io::gzip::bad_method:
      return "unknown method";
    default:
      return error.what();
  }
}

}  // namespace

bool IsGzip(std::string_view text) {
  return text.size() > 2 && text[0] == '\x1f' && text[1] == '\x8b';
}

std::string GzipCompress(std::string_view text) {
  std::string out;
  io::filtering_streambuf<io::output> stream;
  stream.push(io::gzip_compressor(io::gzip_params(io::gzip::default_compression, io::gzip::deflated,
                                                  kWindowBits, kMemoryLevel, io::gzip::default_strategy),
                                  kFilterBuffer));
  stream.push(io::back_inserter(out));
  io::write(stream, text.data(), static_cast<std::streamsize>(text.size()));
  stream.reset();
  return out;
}

std::string GzipDecompress(std::string_view text, std::size_t limit) {
  std::string out;
  try {
    io::filtering_streambuf<io::input> stream;
    stream.push(io::gzip_decompressor(kWindowBits, kFilterBuffer));
    stream.push(io::array_source(text.data(), text.size()));
    char piece[kFilterBuffer];
    for (;;) {
      std::streamsize const count = stream.sgetn(piece, sizeof piece);
      if (count <= 0) {
        break;
      }
      if (out.size() + static_cast<std::size_t>(count) > limit) {
        throw GzipError("more than " + std::to_string(limit) + " bytes of output");
      }
      out.append(piece, static_cast<std::size_t>(count));
    }
  } catch (io::gzip_error const& error) {
    throw GzipError(_Describe(error));
  }
  return out;
}

}  // namespace LifeCycle
