#include "platform/Png.h"

#include <png.h>

#include <cstdio>
#include <memory>
#include <vector>

namespace platform {
namespace {

struct FileCloser {
    void operator()(FILE* file) const { std::fclose(file); }
};
using FilePtr = std::unique_ptr<FILE, FileCloser>;

}  // namespace

bool WritePng(const std::string& path, const Framebuffer& picture)
{
    if (picture.width <= 0 || picture.height <= 0)
        return false;
    FilePtr file(std::fopen(path.c_str(), "wb"));
    if (!file)
        return false;
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png ? png_create_info_struct(png) : nullptr;
    if (png == nullptr || info == nullptr) {
        png_destroy_write_struct(&png, &info);
        return false;
    }
    std::vector<png_byte> row(static_cast<size_t>(picture.width) * 3);
    // libpng reports errors by longjmp; nothing with a destructor is made
    // between here and the end.
    if (setjmp(png_jmpbuf(png))) {
        png_destroy_write_struct(&png, &info);
        return false;
    }
    png_init_io(png, file.get());
    png_set_IHDR(png, info, picture.width, picture.height, 8, PNG_COLOR_TYPE_RGB, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    for (int y = 0; y < picture.height; ++y) {
        for (int x = 0; x < picture.width; ++x) {
            const uint32_t pixel = picture.At(x, y);
            row[x * 3 + 0] = static_cast<png_byte>(pixel >> 16);
            row[x * 3 + 1] = static_cast<png_byte>(pixel >> 8);
            row[x * 3 + 2] = static_cast<png_byte>(pixel);
        }
        png_write_row(png, row.data());
    }
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
    return std::fflush(file.get()) == 0;
}

bool ReadPng(const std::string& path, Framebuffer& picture)
{
    FilePtr file(std::fopen(path.c_str(), "rb"));
    if (!file)
        return false;
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png ? png_create_info_struct(png) : nullptr;
    if (png == nullptr || info == nullptr) {
        png_destroy_read_struct(&png, &info, nullptr);
        return false;
    }
    Framebuffer read;
    std::vector<png_byte> row;
    if (setjmp(png_jmpbuf(png))) {
        png_destroy_read_struct(&png, &info, nullptr);
        return false;
    }
    png_init_io(png, file.get());
    png_read_info(png, info);
    const int colorType = png_get_color_type(png, info);
    const int channels = colorType == PNG_COLOR_TYPE_RGB ? 3 : colorType == PNG_COLOR_TYPE_RGBA ? 4 : 0;
    if (png_get_bit_depth(png, info) != 8 || channels == 0) {
        png_destroy_read_struct(&png, &info, nullptr);
        return false;
    }
    read = Framebuffer(static_cast<int>(png_get_image_width(png, info)),
                       static_cast<int>(png_get_image_height(png, info)));
    row.resize(png_get_rowbytes(png, info));
    for (int y = 0; y < read.height; ++y) {
        png_read_row(png, row.data(), nullptr);
        for (int x = 0; x < read.width; ++x) {
            const png_byte* p = row.data() + static_cast<size_t>(x) * channels;
            read.At(x, y) = (uint32_t(p[0]) << 16) | (uint32_t(p[1]) << 8) | p[2];
        }
    }
    png_destroy_read_struct(&png, &info, nullptr);
    picture = std::move(read);
    return true;
}

}  // namespace platform
