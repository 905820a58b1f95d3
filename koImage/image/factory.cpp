#include "koImage/image/factory.h"

#include "koImage/image/pixel_dispatch.h"
#include "koImage/image/typed_image.h"

namespace koImage {

Image* imageCreateByType(PixelTypeId type)
{
    Image* image = nullptr;
    dispatchPixel(type, StoredPixels{},
                  [&](auto tag) { image = new TypedImage<typename decltype(tag)::type>; });
    return image;
}

}  // namespace koImage
