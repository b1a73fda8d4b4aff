#include <memblock/statistic/statistic.h>

#include <cstdio>

int main()
{
    using namespace NKelmic;
    static unsigned short pixels[] = {7, 3, 9, 3};
    auto grey = Vector::Create(4, Vector::UnsignedShort, pixels, nullptr, 0, 0.5);
    double const raw = Statistic(grey, "mean", "exclude", "exclude", 0).Comp(0, -1);
    std::printf("%s: mean %g raw, %g cooked\n", grey->GetDescription().c_str(), raw,
                raw * cref(grey).Factor());
}
