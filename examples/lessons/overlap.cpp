// Objects of a picture as lists of pixels: they may overlap, which no label image can hold.
#include <memblock/imaging/image.h>
#include <memblock/imaging/intervalvector.h>
#include <memblock/imaging/stencil.h>

#include <cstdio>
#include <vector>

using namespace NKelmic;

namespace {

constexpr unsigned width = 7, height = 5;

/// The pixels of a rectangle, the second corner not included.
std::vector<unsigned> Box(unsigned x1, unsigned y1, unsigned x2, unsigned y2)
{
    std::vector<unsigned> pixels;
    for (unsigned y = y1; y < y2; ++y)
        for (unsigned x = x1; x < x2; ++x)
            pixels.push_back(x + y * width);
    return pixels;
}

DerivedPointer<IntervalVector> Objects(std::vector<std::vector<unsigned>> const& lists)
{
    return IntervalVector::CreateFromStdVectors(static_cast<unsigned>(lists.size()), lists.data(),
                                                IndexVector::TargetData(2, width, height));
}

void ShowAreas(char const* text, IntervalVector const& objects)
{
    std::printf("%s:", text);
    unsigned const* const limit = objects.StartAndEnd(1, false, true, nullptr);
    for (unsigned k = 1; k <= objects.IntervalCount(); ++k)
        std::printf(" %u", limit[k + 1] - limit[k]);
    std::printf("\n");
}

void Draw(Image const& labels)
{
    for (unsigned y = 0; y < labels.height(); ++y) {
        for (unsigned x = 0; x < labels.width(); ++x)
            std::printf("%c", ".123456789"[labels[x + y * labels.width()]]);
        std::printf("\n");
    }
}

} // namespace

int main()
{
    auto const cells = Objects({Box(1, 1, 4, 4), Box(3, 1, 6, 3)});
    std::printf("%s of %u objects\n", cells->LgType2String(cells->LgType()).c_str(),
                cells->IntervalCount());
    ShowAreas("areas", cref(cells));
    Draw(*cells->GetMaskImage()); // a pixel has one label: the later object wins

    // What belongs to each cell and to the nucleus of the same number, and what to the cell alone.
    auto const nuclei = Objects({Box(2, 2, 4, 4), Box(4, 1, 6, 2)});
    op_options const options;
    ShowAreas("in the nuclei",
              cref(DerivedPointer<IntervalVector>(cells->op('&', nuclei, options))));
    ShowAreas("around them", cref(DerivedPointer<IntervalVector>(cells->op('^', nuclei, options))));

    // Drawn and read again the overlap is gone from the first object.
    auto const stencil = Stencil::Create(PMemBlock(cells->GetMaskImage()));
    ShowAreas("after drawing", cref(DerivedPointer<IntervalVector>(stencil->GetVectorRepr())));
}
