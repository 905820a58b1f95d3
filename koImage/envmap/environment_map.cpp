#include "koImage/envmap/environment_map.h"

#include "koImage/envmap/cross_map.h"
#include "koImage/envmap/lat_long_map.h"
#include "koImage/envmap/sphere_map.h"

namespace koImage {

EnvironmentMap::~EnvironmentMap() = default;

bool EnvironmentMap::coordToDir(float u, float v, koLinear::VectorFlt& dir) const
{
    float weight = 0.0f;
    return coordToDir(u, v, dir, weight, false);
}

namespace {

EnvironmentMap* attached(EnvironmentMap* map, Image& image, bool wrapHorizontal, bool wrapVertical)
{
    map->setImage(&image);
    image.setWrap(wrapHorizontal, wrapVertical);
    return map;
}

}  // namespace

EnvironmentMap* newEnvironmentMap(Image& image)
{
    int const width = image.width();
    int const height = image.height();
    if (width < 1 || height < 1)
        return nullptr;

    if (width == height)
        return attached(new SphereMap(width), image, true, true);
    if (width % 2 == 0 && width / 2 == height)
        return attached(new LatLongMap(width, height), image, true, false);
    if (width % 3 == 0 && height % 4 == 0 && width / 3 == height / 4)
        return attached(new CrossMap(width / 3, false), image, true, true);
    return nullptr;
}

}  // namespace koImage
