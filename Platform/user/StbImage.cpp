// The decoders and the encoder of stb: a file of its own, as their definitions come with what they include.

#include <cstdlib>

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
