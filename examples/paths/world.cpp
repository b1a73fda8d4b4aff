#include <paths/world.h>

#include <measure/images.h>
#include <memblock/collections/container.h>
#include <memblock/collections/table.h>

#include <algorithm>
#include <vector>

namespace paths {

using namespace NKelmic;
using measure::Page;
using measure::ReadError;

namespace {

DerivedPointer<Image> ColourImage(Page const& page)
{
    if (page.type != DataTypeBase::Byte)
        throw ReadError("has colours of more than 8 bits");
    auto image = Image::Create(static_cast<unsigned>(page.width),
                               static_cast<unsigned>(page.height), DataTypeBase::Triple, 1.0);
    triple* const pixels = image->TriplePointer();
    unsigned char const* sample = page.bytes.get();
    for (unsigned long i = 0; i < page.Pixels(); ++i, sample += 3)
        pixels[i] = triple(static_cast<unsigned>(sample[0] | sample[1] << 8 | sample[2] << 16));
    return image;
}

DerivedPointer<Image> ImageOf(Page& page)
{
    return page.samples == 1 ? measure::GreyImage(page) : ColourImage(page);
}

} // namespace

PMemBlock OpenPicture(std::string const& path)
{
    std::vector<Page> pages;
    auto const reader = measure::OpenPicture(path);
    for (Page page; ReadPage(*reader, page); page = Page())
        pages.push_back(std::move(page));
    if (pages.empty())
        throw ReadError("has no picture");
    if (measure::IsStack(pages))
        return measure::CubeOf(pages);
    return ImageOf(pages[0]);
}

PMemBlock SmallWorld()
{
    double const a[] = {2, 4, 4.5};
    auto const column = Vector::Create(3, DataTypeBase::Double, true, 0, 1.0);
    std::copy(std::begin(a), std::end(a), column->DoublePointer());
    auto const counts = Vector::Create(3, DataTypeBase::Int, true, 0, 1.0);
    for (int i = 0; i < 3; ++i)
        counts->IntPointer()[i] = 10 * (i + 1);
    auto const image = Image::Create(8, 6, DataTypeBase::Byte, 1.0);
    for (int i = 0; i < 48; ++i)
        image->BytePointer()[i] = static_cast<unsigned char>(i);

    auto const world = Container::Create();
    world->Insert("table", DataItem(Table::Create("a", column, "b", counts)));
    world->Insert("image", DataItem(image));
    world->Insert("note", DataItem("a text"));
    return world;
}

} // namespace paths
