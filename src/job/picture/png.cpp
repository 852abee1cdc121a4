// PNG through libpng's interface for whole images, which needs no long jumps.
#include <png.h>

#include <new>
#include <stdexcept>
#include <string>
#include <string_view>

#include "job/picture/picture.h"

namespace povmesh::picture {

Array<char> encode_png(const Image& image) {
    if (image.width == 0 || image.height == 0) {
        throw std::runtime_error("cannot encode an image without pixels");
    }
    png_image png{};
    png.version = PNG_IMAGE_VERSION;
    png.width = image.width;
    png.height = image.height;
    png.format = PNG_FORMAT_RGB;
    // No filters and a low compression level: four times faster, files a third larger.
    png.flags = PNG_IMAGE_FLAG_FAST;

    Array<char> bytes;
    // An upper bound, so that the image is compressed once and not a second time to learn the size.
    png_alloc_size_t size = PNG_IMAGE_PNG_SIZE_MAX(png);
    bytes.resize(size);
    if (png_image_write_to_memory(&png, bytes.data(), &size, 0, image.rgb.data(), 0, nullptr) ==
        0) {
        if (std::string_view(png.message).find("memory") != std::string_view::npos) {
            throw std::bad_alloc();
        }
        throw std::runtime_error(std::string("cannot encode the image: ") + png.message);
    }
    bytes.resize(size);
    return bytes;
}

}  // namespace povmesh::picture
