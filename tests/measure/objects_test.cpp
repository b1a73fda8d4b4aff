#include <memblock/measure/objects.h>

#include <measure/pictures.h>
#include <memblock/imaging/mask.h>
#include <memblock/imaging/stencil.h>
#include <memblock/measure/threshold.h>
#include <support/raises.h>

namespace NKelmic {
namespace {

std::vector<unsigned> PixelsOf(IntervalVector const& objects, unsigned k)
{
    auto const merged = objects.IndexVectorTarget();
    unsigned const* const all = cref(merged).UnsignedIntPointer();
    return {all + objects.Start(0)[k], all + objects.End(0)[k]};
}

TEST(FindObjects, ListsTheFrameAndNumbersByFirstPixels)
{
    std::mt19937 dice(1);
    for (int i = 0; i < 40; ++i) {
        model::Picture const p = RandomPicture(dice);
        auto const image = ImageOf<unsigned char>(p);
        int const neighbours = i % 2 ? 8 : 4;
        auto const wanted = Find(p, 100, false, neighbours);
        auto const found =
            FindObjects(*image, {Segmentation::above, 100, static_cast<Neighbours>(neighbours)});
        ASSERT_EQ(found->IntervalCount(), wanted.size());
        for (unsigned k = 0; k < wanted.size(); ++k) {
            std::vector<unsigned> numbers;
            for (auto const [y, x] : wanted[k])
                numbers.push_back(static_cast<unsigned>(y * p.width + x));
            EXPECT_EQ(PixelsOf(*found, k), numbers);
        }
    }
}

/// Voxels by flood fill of their numbers.
std::vector<std::set<long>> FindVoxels(std::vector<int> const& bits, long w, long h, long d,
                                       bool all)
{
    std::vector<std::set<long>> objects;
    std::set<long> seen;
    for (long start = 0; start < w * h * d; ++start) {
        if (!bits[static_cast<std::size_t>(start)] || seen.count(start))
            continue;
        std::set<long> object;
        std::vector<long> todo{start};
        while (!todo.empty()) {
            long const i = todo.back();
            todo.pop_back();
            if (!bits[static_cast<std::size_t>(i)] || !seen.insert(i).second)
                continue;
            object.insert(i);
            for (long n = 0; n < 27; ++n) {
                long const dx = n % 3 - 1, dy = n / 3 % 3 - 1, dz = n / 9 - 1;
                long const x = i % w + dx, y = i / w % h + dy, z = i / w / h + dz;
                bool const near = std::abs(dx) + std::abs(dy) + std::abs(dz) == 1;
                if ((all || near) && x >= 0 && y >= 0 && z >= 0 && x < w && y < h && z < d)
                    todo.push_back(x + w * (y + h * z));
            }
        }
        objects.push_back(std::move(object));
    }
    return objects;
}

TEST(FindObjects, FindsAndMeasuresVoxels)
{
    std::mt19937 dice(2);
    for (int round = 0; round < 40; ++round) {
        long const w = 1 + dice() % 7, h = 1 + dice() % 7, d = 2 + dice() % 6;
        auto const cube = DataCube::Create(static_cast<int>(w), static_cast<int>(h),
                                           static_cast<int>(d), Vector::UnsignedShort, 1.0);
        std::vector<int> bits;
        for (long i = 0; i < w * h * d; ++i) {
            cube->UnsignedShortPointer()[i] = static_cast<unsigned short>(dice() % 1000);
            bits.push_back(cref(cube).UnsignedShortPointer()[i] > 600);
        }
        bool const all = round % 2;
        auto const wanted = FindVoxels(bits, w, h, d, all);
        auto const found =
            FindObjects(*cube, 600, false, all ? VoxelNeighbours::corners : VoxelNeighbours::faces);
        ASSERT_EQ(found->IntervalCount(), wanted.size());
        EXPECT_EQ(found->LgType(), IntervalVector::datacubestencil);
        MeasureOptions options;
        options.properties = "all";
        auto const table = MeasureObjects(found, {{"", cube}}, options);
        for (unsigned k = 0; k < wanted.size(); ++k) {
            EXPECT_EQ(PixelsOf(*found, k),
                      std::vector<unsigned>(wanted[k].begin(), wanted[k].end()));
            double n = static_cast<double>(wanted[k].size()), x = 0, z = 0, sum = 0;
            for (long const i : wanted[k]) {
                x += static_cast<double>(i % w) / n;
                z += static_cast<double>(i / w / h) / n;
                sum += cref(cube).Elem(static_cast<unsigned>(i));
            }
            // The axes: trace and, of the squares, the sum of all entries are independent of them.
            double trace = 0;
            for (long const i : wanted[k])
                trace += (std::pow(static_cast<double>(i % w) - x, 2) +
                          std::pow(static_cast<double>(i / w / h) - z, 2) +
                          std::pow(static_cast<double>(i / w % h) -
                                       CellOf(*table, "y", static_cast<int>(k)),
                                   2)) /
                         n;
            int const row = static_cast<int>(k);
            EXPECT_EQ(CellOf(*table, "area", row), n);
            EXPECT_NEAR(CellOf(*table, "x", row), x, 1e-12);
            EXPECT_NEAR(CellOf(*table, "z", row), z, 1e-12);
            EXPECT_EQ(CellOf(*table, "sum", row), sum);
            EXPECT_EQ(CellOf(*table, "z0", row), static_cast<double>(*wanted[k].begin() / w / h));
            double axes = 0;
            for (char const* const axis : {"major_axis", "medium_axis", "minor_axis"})
                axes += std::pow(CellOf(*table, axis, row), 2) / 20;
            EXPECT_NEAR(axes, trace, 1e-9);
        }
    }
}

TEST(MeasureObjects, OverlapsGapsZonesAndRepeatedPixels)
{
    auto const values = Image::Create(4, 2, Vector::Byte, 1.0);
    for (int i = 0; i < 8; ++i)
        values->BytePointer()[i] = static_cast<unsigned char>(i);
    std::vector<unsigned> const lists[] = {{1, 2}, {}, {2, 1, 2, 6}, {7}};
    auto const target = IndexVector::TargetData(2, 4, 2);
    auto const objects = IntervalVector::CreateFromStdVectors(4, lists, target);
    MeasureOptions options;
    options.properties = "area,first,sum";
    auto const table = MeasureObjects(objects, {{"", values}}, options);
    double const wanted[][3] = {{2, 1, 3}, {0, -1, 0}, {3, 1, 9}, {1, 7, 7}};
    for (int k = 0; k < 4; ++k) {
        EXPECT_EQ(CellOf(*table, "area", k), wanted[k][0]);
        EXPECT_EQ(CellOf(*table, "first", k), wanted[k][1]);
        EXPECT_EQ(CellOf(*table, "sum", k), wanted[k][2]);
    }

    auto const zoned = IntervalVector::Create(2, objects); // objects of 3 zones and of 1
    zoned->Start(0)[1] = 3;
    zoned->Start(0)[2] = 4;
    options.min_pixels = 2;
    auto const zones = MeasureObjects(zoned, {{"", values}}, options);
    ASSERT_EQ(zones->RowCount(), 1) << "the second has one pixel in all";
    EXPECT_EQ(CellOf(*zones, "zone1_sum", 0), 3);
    EXPECT_EQ(CellOf(*zones, "zone2_area", 0), 0);
    EXPECT_EQ(CellOf(*zones, "zone3_sum", 0), 9);

    EXPECT_RAISES(MeasureObjects(values, {{"", Image::Create(4, 3, Vector::Byte, 1.0)}}, options),
                  err_kind,
                  Text("Intensities of %s lie not below objects of %s.",
                       *Image::Create(4, 3, Vector::Byte, 1.0), *values));
    EXPECT_RAISES(MeasureObjects(Table::Create(), {}, options), err_kind,
                  Text("Objects cannot be measured: %s", *Table::Create()));
}

TEST(Threshold, IsOtsusOfTheExactVariances)
{
    std::mt19937 dice(3);
    for (int round = 0; round < 200; ++round) {
        unsigned const values = 2 + dice() % 12;
        auto const v = Image::Create(1 + dice() % 40, 1, Vector::Short, 1.0);
        short* const out = v->ShortPointer();
        for (unsigned i = 0; i < v->Length(); ++i)
            out[i] = static_cast<short>(dice() % values) - 5;
        // Of all splits the first with the greatest product of sizes and squared distance of means.
        double wanted = 0;
        long long most = -1, divisor = 1;
        for (int t = -5; t < 8; ++t) {
            long n = 0, s = 0, all = 0;
            for (unsigned i = 0; i < v->Length(); ++i) {
                all += out[i];
                if (out[i] <= t) {
                    ++n;
                    s += out[i];
                }
            }
            long const size = static_cast<long>(v->Length());
            if (n == 0 || n == size)
                continue;
            long long const distance = s * size - all * n;
            if (distance * distance * divisor > most * (n * (size - n))) {
                most = distance * distance;
                divisor = n * (size - n);
                wanted = t;
            }
        }
        if (most < 0)
            continue; // all are equal
        EXPECT_EQ(OtsuThreshold(cref(v)), wanted);
        auto const floats =
            DerivedPointer<Vector>(v->ConvertElemsToType(Vector::Float, true, false));
        double const t = OtsuThreshold(cref(floats)); // bins are finer than the values
        EXPECT_GE(t, wanted);
        EXPECT_LT(t, wanted + 1);
    }
}

} // namespace
} // namespace NKelmic
