#include <measure/picture.h>

#include <cmath>
#include <cstring>

namespace measure {
namespace {

class MadeReader : public Reader {
public:
    bool NextPage(PageHeader& header) override
    {
        if (done_)
            return false;
        done_ = true;
        header = PageHeader();
        header.width = header.height = side;
        header.type = NKelmic::DataTypeBase::UnsignedShort;
        return true;
    }
    void ReadRows(unsigned long count, unsigned char* bytes) override
    {
        for (; count > 0; --count, ++row_)
            for (int x = 0; x < side; ++x, bytes += 2) {
                unsigned short const value = Value(x, row_);
                std::memcpy(bytes, &value, 2);
            }
    }
    void Rewind() override { row_ = 0; }

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
    int row_ = 0;
};

} // namespace

std::unique_ptr<Reader> MadePicture()
{
    return std::make_unique<MadeReader>();
}

} // namespace measure
