#include "koImage/image/image.h"

namespace koImage {

Image::Image(PixelTypeId pixelType) : pixelType_(pixelType) {}

Image::~Image() = default;

void Image::setWrap(bool horizontal, bool vertical)
{
    wrapHorizontal_ = horizontal;
    wrapVertical_ = vertical;
}

void Image::range(koUtil::IntRange2d& rectangle) const
{
    rectangle = {0, 0, width_, height_};
}

void Image::setSize(int width, int height)
{
    width_ = width;
    height_ = height;
    invWidth_ = width < 1 ? 1.0f : 1.0f / static_cast<float>(width);
    invHeight_ = height < 1 ? 1.0f : 1.0f / static_cast<float>(height);
}

}  // namespace koImage
