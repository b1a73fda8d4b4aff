// Wrap the memory of a reader without a copy, compute on it, and hand it on to somebody else who
// gives it back by the reader's own function.
#include <memblock/statistic/statistic.h>

#include <cstdio>

using namespace NKelmic;

namespace {

/// A reader as many libraries have one: it decodes into memory of its own and wants that back.
class Reader {
public:
    void* Decode(unsigned long& size)
    {
        size = sizeof frame_;
        return frame_;
    }
    void Recycle(void* data)
    {
        std::printf("reader: %s\n", data == frame_ ? "got its frame" : "?");
    }

private:
    unsigned short frame_[6] = {10, 20, 30, 40, 50, 60};
};

void GiveBack(void* data, void* reader)
{
    static_cast<Reader*>(reader)->Recycle(data);
}

/// What the next one in line gets: memory with the way to release it, and nothing of this library
/// but the plain structure.
void Consume(Carrier frame)
{
    auto const* pixels = static_cast<unsigned short const*>(frame.data);
    std::printf("consumer: %lu bytes, first pixel %d\n", frame.size, pixels[0]);
    frame.release2(frame.data, frame.user_data);
}

} // namespace

int main()
{
    Reader reader;
    Carrier frame;
    frame.data = reader.Decode(frame.size);
    frame.release2 = GiveBack;
    frame.user_data = &reader;

    void const* const decoded = frame.data;
    MemChunk chunk(frame); // takes the memory out of the carrier
    {
        auto pixels = Vector::Create(TypedChunk(6, Vector::UnsignedShort, chunk, 0), 1.0);
        std::printf("mean %g, copied: %s\n",
                    Statistic(pixels, "mean", "exclude", "exclude", 0).Comp(0, -1),
                    cref(pixels).Pointer() == decoded ? "no" : "yes");

        auto mine = DerivedPointer<Vector>(pixels->Clone(true)); // shares the frame ...
        mine->SetElem(0, 99);                                    // ... until it writes
        std::printf("mine %d, frame %d\n", cref(mine)[0], cref(pixels)[0]);
    }
    Consume(chunk.TransferToCarrier()); // nobody else holds the frame: it leaves as it came
}
