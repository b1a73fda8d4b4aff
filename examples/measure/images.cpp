#include <measure/images.h>

#include <algorithm>

namespace measure {

using namespace NKelmic;

DerivedPointer<Image> GreyImage(Page& page)
{
    auto const release = [](void* bytes) { delete[] static_cast<unsigned char*>(bytes); };
    return Image::Create(page.bytes.release(), release, static_cast<unsigned>(page.width),
                         static_cast<unsigned>(page.height), page.type, 1.0);
}

bool IsStack(std::vector<Page> const& pages)
{
    auto const like_first = [&](Page const& page) {
        return page.samples == 1 && page.type == pages[0].type && page.width == pages[0].width &&
               page.height == pages[0].height;
    };
    return pages.size() > 1 && std::all_of(pages.begin(), pages.end(), like_first);
}

DerivedPointer<DataCube> CubeOf(std::vector<Page>& pages)
{
    auto const cube =
        DataCube::Create(static_cast<int>(pages[0].width), static_cast<int>(pages[0].height),
                         static_cast<int>(pages.size()), pages[0].type, 1.0);
    for (std::size_t z = 0; z < pages.size(); ++z)
        cube->ReplacePlane(static_cast<int>(z), GreyImage(pages[z]));
    return cube;
}

} // namespace measure
