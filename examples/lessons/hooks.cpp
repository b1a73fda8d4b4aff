// A host takes over what the library would otherwise write to standard error, and answers
// requests for histograms.
#include <memblock/core/safevalue.h>
#include <memblock/imaging/image.h>
#include <memblock/serial/warning.h>
#include <memblock/vector/summary.h>

#include <cstdio>

using namespace NKelmic;

namespace {

void OnWarning(unsigned code, char const* text)
{
    std::printf("warning %u: %s\n", code, text);
}

void OnAlarm(char const* text, int severity, int code, char const* source)
{
    std::printf("alarm %d/5 of %s, code %d: %s\n", severity, source, code, text);
}

/// The distribution of the values of a vector, in so many bins from 0 to its maximum.
PMemBlock OnDistribution(PMemBlock block, int bins, bool)
{
    DerivedPointer<Vector> const values(block);
    auto const counts = Vector::Create(bins, Vector::Int, true, 0, 1.0);
    double const top = values->SecondaryDouble(key_max, throw_always);
    for (unsigned i = 0; i < values->Length(); ++i) {
        int const bin = static_cast<int>(cref(values).Elem(i) * bins / (top + 1));
        counts->SetElem(bin, cref(counts)[bin] + 1);
    }
    return counts;
}

template <class Function>
void Install(char const* verb, Function* function)
{
    MemBlock_DoVerb(verb, SafeValue(DataItem(reinterpret_cast<void*>(function))));
}

} // namespace

int main()
{
    Install("set_kelmicwarningfunc", OnWarning);
    Install("set_sendalarmkelmicfunc", OnAlarm);
    Install("set_calldistributionfunc", OnDistribution);

    // A stencil has an empty frame: what stands there is removed, with a warning.
    auto const labels = Image::Create(4, 4, Vector::UnsignedShort, 1.0);
    labels->Fill(DataItem(1));
    labels->SetType(Image::stencil);

    SendAlarmMemBlock("the camera does not answer", 4, 17, "grabber");

    auto const counts = DerivedPointer<Vector>(labels->GetHistogram(2, false));
    std::printf("histogram: %d %d\n", cref(counts)[0], cref(counts)[1]);

    // Without a hook the library writes to standard error again.
    Install<void(unsigned, char const*)>("set_kelmicwarningfunc", nullptr);
}
