#include "Platform/user/StbImage.h"

#include <cstdlib>

#if defined(__GNUC__) && !defined(__clang__)
// It does not see that a reader of bytes in memory has no callback to fill its buffer.
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif

#define STB_IMAGE_STATIC
#define STB_IMAGE_WRITE_STATIC

#define STBI_NO_STDIO
#define STBI_ONLY_BMP
#define STBI_ONLY_GIF
#define STBI_ONLY_JPEG
#define STBI_ONLY_PNG
#define STBI_NO_FAILURE_STRINGS  // one of them is written to, by whichever thread fails

// A picture can be made such that the decoder's expectations do not hold; that is no mistake of ours.
#define STBI_ASSERT(condition) static_cast<void>(0)

// Cleared, as a picture can refer to tables that it does not bring.
#define STBI_MALLOC(size) std::calloc(1, size)
#define STBI_REALLOC(memory, size) std::realloc(memory, size)
#define STBI_FREE(memory) std::free(memory)

#define STB_IMAGE_IMPLEMENTATION
#include <stb/stb_image.h>

#define STBI_WRITE_NO_STDIO
#define STB_IMAGE_WRITE_IMPLEMENTATION
#include <stb/stb_image_write.h>

namespace vesko::StbImage {
namespace {

int lengthOf(std::string_view bytes) noexcept { return static_cast<int>(bytes.size()); }

const stbi_uc* firstOf(std::string_view bytes) noexcept { return reinterpret_cast<const stbi_uc*>(bytes.data()); }

void append(void* text, void* bytes, int length) {
  static_cast<std::string*>(text)->append(static_cast<const char*>(bytes), static_cast<std::size_t>(length));
}

}  // namespace

void PixelsDeleter::operator()(unsigned char* pixels) const noexcept { stbi_image_free(pixels); }

bool readSize(std::string_view bytes, Size& size) noexcept {
  int channels = 0;
  return stbi_info_from_memory(firstOf(bytes), lengthOf(bytes), &size.width, &size.height, &channels) != 0;
}

Decoded decode(std::string_view bytes) noexcept {
  Decoded image;
  int channels = 0;
  image.pixels.reset(stbi_load_from_memory(firstOf(bytes), lengthOf(bytes), &image.size.width, &image.size.height,
                                           &channels, bytesPerPixel));
  return image;
}

std::string encodePng(std::string_view pixels, Size size) {
  std::string png;
  const int rowLength = size.width * bytesPerPixel;
  const bool isWritten =
      stbi_write_png_to_func(append, &png, size.width, size.height, bytesPerPixel, pixels.data(), rowLength) != 0;
  return isWritten ? png : std::string();
}

bool inflatesInto(std::string_view bytes, std::span<char> buffer) noexcept {
  return stbi_zlib_decode_buffer(buffer.data(), static_cast<int>(buffer.size()), bytes.data(), lengthOf(bytes)) >= 0;
}

}  // namespace vesko::StbImage
