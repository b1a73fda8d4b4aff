#include <measure/picture.h>

#include <cmath>
#include <cstring>

namespace measure {
namespace {

class MadeReader : public Reader {
public:
    bool Next(Page& page) override
    {
        if (done_)
            return false;
        done_ = true;
        page = Page();
        page.width = page.height = side;
        page.type = NKelmic::DataTypeBase::UnsignedShort;
        page.bytes = std::make_unique_for_overwrite<unsigned char[]>(page.Pixels() * 2);
        for (int y = 0; y < side; ++y)
            for (int x = 0; x < side; ++x) {
                unsigned short const value = Value(x, y);
                std::memcpy(&page.bytes[2UL * (y * side + x)], &value, 2);
            }
        return true;
    }

private:
    static constexpr int side = 256;

    /// Discs of radius 12 on a grid of 64, up to 1152 above a background of 100 to 355.
    static unsigned short Value(int x, int y)
    {
        int const dx = x % 64 - 32;
        int const dy = y % 64 - 32;
        int const inside = 12 * 12 - dx * dx - dy * dy;
        int const background = 100 + (x + y) / 2;
        return static_cast<unsigned short>(inside > 0 ? background + inside * 8 : background);
    }

    bool done_ = false;
};

} // namespace

std::unique_ptr<Reader> MadePicture()
{
    return std::make_unique<MadeReader>();
}

} // namespace measure
