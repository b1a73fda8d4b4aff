#include <memblock/base/number.h>
#include <memblock/vector/vector.h>

#include <support/elemtypes.h>
#include <support/raises.h>
#include <support/rounds.h>
#include <support/vectors.h>

#include <gtest/gtest.h>

#include <numeric>
#include <random>

using namespace NKelmic;

namespace {

/// An array with a shape: rows of a fixed width below each other, as pictures have it.
class Grid : public Vector {
public:
    static DerivedPointer<Grid> Create(unsigned int width, unsigned int height)
    {
        return DerivedPointer<Grid>(new Grid(width, height));
    }
    int GetRank() const override { return 2; }
    unsigned int GetDimSize(int i) const override { return i == 0 ? width : i == 1 ? height : 0; }
    void ChangeDimSizes(unsigned int const* dims, int) override
    {
        width = dims[0];
        height = dims[1];
        ResizeVector(static_cast<unsigned long>(width) * height, true, true);
    }
    PMemBlock DoClone(int mode) const override
    {
        DerivedPointer<Grid> copy(new Grid(*this));
        copy->FinishClone(mode);
        return copy;
    }
    DataItem DoVerb(char const* verb, int argc, SafeValue* argv) override
    {
        if (safestring("notif_elmtyp_chng") == verb)
            noticed = argc == 1 ? argv[0].GetInt() : -2;
        return Vector::DoVerb(verb, argc, argv);
    }

    unsigned int width, height;
    int noticed = -1;

private:
    Grid(unsigned int w, unsigned int h)
        : Vector(Vector::Create(static_cast<unsigned long>(w) * h, Byte, true, 0, 1.0)->Chunk(),
                 1.0),
          width(w), height(h)
    {
    }
};

/// A value that encodes its number, of any element type.
template <class T>
T Value(unsigned int i)
{
    if constexpr (std::is_same_v<T, safestring>)
        return i % 2 ? safestring(str(i)) : safestring(30, 'x') + str(i); // inside and outside
    else if constexpr (std::is_same_v<T, PMemBlock>)
        return i % 5 ? PMemBlock(Vector::CreateFrom(static_cast<int>(i))) : PMemBlock();
    else if constexpr (std::is_same_v<T, DataItem>)
        return i % 3 ? DataItem(static_cast<int>(i)) : DataItem(safestring(25, 'y') + str(i));
    else if constexpr (std::is_same_v<T, void*>)
        return reinterpret_cast<void*>(static_cast<unsigned long>(i) * 8);
    else
        return static_cast<T>(i % 120);
}

template <class T>
bool Same(T const& a, T const& b)
{
    if constexpr (std::is_same_v<T, DataItem>)
        return a.GetType() == b.GetType() && (a.IsUndefined() || a.GetString() == b.GetString());
    else
        return a == b;
}

template <class T>
bool Same(std::vector<T> const& model, Vector const& v)
{
    T const* const data = v.TypedPointer<T>();
    return v.Length() == model.size() &&
           std::equal(model.begin(), model.end(), data,
                      [](T const& a, T const& b) { return Same(a, b); });
}

/// Does random things to a vector and, in the plainest way, to a list that says what must come out.
template <class T>
class Twin {
public:
    explicit Twin(unsigned int seed) : random_(seed)
    {
        for (unsigned int i = 0; i < 5; ++i)
            model_.push_back(Next());
        vector_ = MakeVector<T>(model_);
    }

    void Step()
    {
        unsigned int const size = static_cast<unsigned int>(model_.size());
        switch (last_ = random_() % 10) {
        case 0:
            return Erase(Below(size + 2), Below(4));
        case 1:
            return Insert(Below(size + 1));
        case 2:
            return Shift(static_cast<int>(Below(7)) - 3);
        case 3:
            return Pick(Below(size + 1), Below(size + 4));
        case 4:
            return AppendOther(Below(4));
        case 5:
            return size < 200 ? AppendSelf() : Erase(0, 150);
        case 6:
            return Slice(Below(size + 1), Below(size + 3));
        case 7:
            return Resize(Below(size + 5));
        case 8:
            return Set();
        default:
            return Share();
        }
    }

    void Check() const
    {
        safestring message;
        ASSERT_TRUE(Same(model_, cref(vector_)))
            << "change " << last_ << " gave " << TextOf(vector_);
        ASSERT_TRUE(vector_->Consistent(message, false)) << message.c_str();
        if (shared_) {
            ASSERT_TRUE(Same(shared_model_, cref(shared_))) << "a clone has changed";
        }
    }

private:
    T Next() { return Value<T>(next_++); }
    unsigned int Below(unsigned int n) { return n ? random_() % n : 0; }

    void Erase(unsigned int pos, unsigned int count)
    {
        vector_->Erase(static_cast<int>(pos), static_cast<int>(count));
        auto const from = model_.begin() + std::min<long>(pos, model_.size());
        model_.erase(from, from + std::min<long>(count, model_.end() - from));
    }
    void Insert(unsigned int pos)
    {
        if constexpr (!std::is_same_v<T, PMemBlock> && !std::is_same_v<T, void*>) {
            T const value = Next();
            if constexpr (std::is_same_v<T, float>)
                vector_->Insert(static_cast<int>(pos), DataItem(static_cast<double>(value)));
            else if constexpr (sizeof(T) < sizeof(int))
                vector_->Insert(static_cast<int>(pos),
                                DataItem(static_cast<int>(static_cast<unsigned int>(value))));
            else
                vector_->Insert(static_cast<int>(pos), DataItem(value));
            model_.insert(model_.begin() + pos, value);
        }
    }
    void Shift(int n)
    {
        vector_->ShiftVector(n);
        if (n > 0)
            model_.insert(model_.begin(), n, T());
        else
            model_.erase(model_.begin(),
                         model_.begin() + std::min<long>(-n, static_cast<long>(model_.size())));
    }
    void Pick(unsigned int n, unsigned int new_length)
    {
        std::vector<int> idx(model_.size());
        std::iota(idx.begin(), idx.end(), 0);
        std::shuffle(idx.begin(), idx.end(), random_);
        if (!IsInSet<ObjectTypes>(type_of<T>::value) && !idx.empty())
            idx[0] = idx.back(); // plain elements may be used twice
        vector_->Rearrange(idx.data(), n, new_length, throw_always);
        std::vector<T> picked(new_length, T());
        for (unsigned int k = 0; k < std::min(n, new_length); ++k)
            picked[k] = model_[idx[k]];
        model_ = picked;
    }
    void AppendOther(unsigned int count)
    {
        std::vector<T> more;
        for (unsigned int i = 0; i < count; ++i)
            more.push_back(Next());
        vector_->Append(MakeVector<T>(more));
        model_.insert(model_.end(), more.begin(), more.end());
    }
    void AppendSelf()
    {
        vector_->Append(vector_);
        std::vector<T> const copy = model_;
        model_.insert(model_.end(), copy.begin(), copy.end());
    }
    void Slice(unsigned int from, unsigned int to)
    {
        if (from >= model_.size() && from != to)
            return;
        auto const slice = vector_->CloneSlice(from, to);
        unsigned long end = from == to ? from : to == 0 ? from + 1 : to;
        end = std::max<unsigned long>(from, std::min<unsigned long>(end, model_.size()));
        std::vector<T> expected;
        if (from != to)
            expected.assign(model_.begin() + from, model_.begin() + end);
        ASSERT_TRUE(Same(expected, cref(slice)));
    }
    void Resize(unsigned int n)
    {
        vector_->ResizeVector(n, true, true);
        model_.resize(n, T());
    }
    void Set()
    {
        if (model_.empty())
            return;
        unsigned int const i = Below(static_cast<unsigned int>(model_.size()));
        T const value = Next();
        vector_->TypedPointer<T>()[i] = value;
        vector_->ContentHasBeenChanged();
        model_[i] = value;
    }
    void Share()
    {
        shared_ = VectorOf(vector_->Clone(true));
        shared_model_ = model_;
        // PolyType clones are independent: texts stay texts.
    }

    std::mt19937 random_;
    unsigned int next_ = 1;
    unsigned int last_ = 0; // the last change, for messages
    std::vector<T> model_, shared_model_;
    DerivedPointer<Vector> vector_, shared_;
};

} // namespace

template <class T>
class VectorModel : public testing::Test {
};
TYPED_TEST_SUITE(VectorModel, AllElemTypes);

TYPED_TEST(VectorModel, StructuralChangesMatchAPlainListAndLeaveClonesAlone)
{
    for (int seed = 1; seed <= Rounds(20); ++seed) {
        Twin<TypeParam> twin(static_cast<unsigned int>(seed));
        for (int step = 0; step < 200; ++step) {
            SCOPED_TRACE(testing::Message() << "seed " << seed << ", step " << step);
            twin.Step();
            twin.Check();
            if (this->HasFatalFailure())
                return;
        }
    }
}

TEST(VectorStructure, ArgumentsOutOfRangeRaiseAndChangeNothing)
{
    auto const v = Ints({1, 2, 3});
    char const* const tail = "Vector of 3 elements of type signed int";
    EXPECT_RAISES(v->Erase(-1, 1), 128, "Vector::Erase() called with illegal parameters: -1, 1");
    EXPECT_RAISES(v->Erase(1, -1), 128, "Vector::Erase() called with illegal parameters: 1, -1");
    EXPECT_RAISES(v->Insert(4, DataItem(1)), 128,
                  safestring("Cannot insert element at position 4 into: ") + tail);
    EXPECT_RAISES(v->CloneSlice(3, 0), 32,
                  safestring("Vector::CloneSlice(): start index invalid (3): ") + tail);
    EXPECT_RAISES(v->Insert(1, DataItem("word")), 512, "Invalid numeric: word");
    EXPECT_RAISES(Bytes({1})->Insert(0, DataItem(300)), 128,
                  "Vector::SetElem(): Value (300) out of range for data item: Vector of 2 elements "
                  "of type byte");
    unsigned int const dims[2] = {2, 2};
    EXPECT_RAISES(v->ChangeDimSizes(dims, 2), 128,
                  safestring("Vector::ChangeDimSizes() is called with an invalid number of "
                             "dimensions 2 for: ") +
                      tail);
    EXPECT_RAISES(Objects({PMemBlock(v)})->Insert(0, DataItem(1)), 128,
                  "Function movebyone_tmpl not implemented for data type 'memblock'");
    EXPECT_THROW(Texts({"a"})->SetFirstIndex(1), Exception);
    EXPECT_EQ(TextOf(v), "1 2 3");
    v->Erase(1, 100);
    EXPECT_EQ(TextOf(v), "1");
    v->ChangeDimSizes(dims, 1);
    EXPECT_EQ(TextOf(v), "1 0");
    EXPECT_EQ(TextOf(v->GetDimSizes()), "2");
    EXPECT_EQ(v->GetDimSize(1), 0u);
}

TEST(VectorStructure, ABadIndexOfARearrangementGoesToTheHandler)
{
    for (auto const& v : {Ints({1, 2, 3}), Texts({"1", "2", "3"})}) {
        int const idx[] = {2, 3};
        int const negative[] = {-1};
        EXPECT_RAISES(v->Rearrange(idx, 2, 2, throw_always), 128,
                      "Vector index out of bounds (3): 3");
        v->Rearrange(negative, 1, 1, throw_never);
        EXPECT_EQ(TextOf(v), "1 2 3");
    }
    auto const v = Vector::Create(2, Vector::Int, true, 1, 1.0);
    v->SetFirstIndex(-1);
    v->SetElem(0, 7);
    v->SetElem(1, 8);
    v->SetFirstIndex(1); // 7 lies ahead of index 0
    int const order[] = {1, 0};
    v->Rearrange(order, 2, 2, throw_always);
    EXPECT_EQ(TextOf(v), "0 8");
    v->SetFirstIndex(-1);
    EXPECT_EQ(TextOf(v), "7 0 8");
}

TEST(VectorStructure, AnInsertedValueMayBeAnElementOfTheSameVector)
{
    auto const v = Items({DataItem("a text too long to stay inside the item"), DataItem(2)});
    for (int i = 0; i < 20; ++i)
        v->Insert(0, cref(v).PolyTypePointer()[0]);
    EXPECT_EQ(v->GetString(0), v->GetString(20));
    auto const texts = Texts({"a text too long to stay inside the string object", "b"});
    texts->SetElem(1, cref(texts).StringPointer()[0]);
    EXPECT_EQ(texts->GetString(0), texts->GetString(1));
}

TEST(VectorStructure, AShapeFollowsTheLengthOrRefusesIt)
{
    auto const grid = Grid::Create(4, 3);
    EXPECT_RAISES(grid->ResizeVector(13, true, true), 128,
                  "Cannot set total length 13 for object: Vector of 12 elements of type byte");
    EXPECT_RAISES(grid->Erase(1, 1), 128,
                  "Cannot set total length 11 for object: Vector of 12 elements of type byte");
    EXPECT_RAISES(grid->Append(Bytes({1})), 128,
                  "Cannot set total length 13 for object: Vector of 12 elements of type byte");
    EXPECT_EQ(grid->height, 3u);
    grid->ResizeVector(20, true, true);
    EXPECT_EQ(grid->height, 5u);
    grid->SetTypedChunk(Bytes({1, 2, 3, 4})->Chunk());
    EXPECT_EQ(grid->height, 1u);
    EXPECT_RAISES(grid->SetTypedChunk(Bytes({1})->Chunk()), 128,
                  "Cannot set total length 1 for object: Vector of 4 elements of type byte");
    grid->Erase(0, 4);
    EXPECT_EQ(grid->height, 0u);
    safestring message;
    EXPECT_TRUE(grid->Consistent(message, true)) << message.c_str();
    auto const empty = Grid::Create(0, 5);
    EXPECT_TRUE(empty->Consistent(message, true)) << message.c_str();
    EXPECT_RAISES(empty->ResizeVector(5, true, true), 128,
                  "Cannot set total length 5 for object: Vector of 0 elements of type byte");
    empty->ResizeVector(0, true, true);
}

TEST(VectorStructure, ConsistencyComparesTheShapeWithTheLength)
{
    std::tuple<unsigned int, unsigned int, char const*> const cases[] = {
        {4, 3, ""},
        {0, 3, "Dimension 0 size is zero, but vector length not: 12"},
        {5, 3, "Dimension 0 size is 5, which is not a factor of vector length: 12"},
        {4, 1, "Vector length 12 is not the product of dimension sizes."},
        {1, 0xFFFFFFFF, "Dimension 1 size negative: -1"},
    };
    for (auto [width, height, expected] : cases) {
        auto const grid = Grid::Create(4, 3);
        grid->width = width;
        grid->height = height;
        safestring message;
        EXPECT_EQ(grid->Consistent(message, false), *expected == '\0');
        EXPECT_STREQ(message.c_str(), expected);
    }
}

TEST(VectorStructure, ATypeChangeKeepsTheShapeAndNotifiesTheObject)
{
    auto const grid = Grid::Create(4, 2);
    grid->SetElem(1, 3);
    PMemBlock const converted = cref(grid).ConvertElemsToType(Vector::Double, true, true);
    auto const* wide = dynamic_cast<Grid*>(converted.Pointer());
    ASSERT_NE(wide, nullptr);
    EXPECT_EQ(wide->height, 2u);
    EXPECT_EQ(wide->noticed, Vector::Double);
    EXPECT_EQ(TextOf(*wide), "0 3 0 0 0 0 0 0");
    EXPECT_EQ(grid->noticed, -1);
    EXPECT_EQ(cref(grid).ConvertElemsToType(Vector::Double, false, false)->Length(), 8u);
    EXPECT_RAISES(grid->SetElemType(Vector::UnsignedInt64, false, false), 128,
                  "Cannot set total length 1 for object: Vector of 8 elements of type byte");
    EXPECT_EQ(grid->noticed, -1);
    grid->SetElemType(Vector::Short, false, false);
    EXPECT_EQ(grid->height, 1u);
    EXPECT_EQ(TextOf(grid), "768 0 0 0");
}

TEST(VectorAppend, TheTypeCoversBothSides)
{
    struct Case {
        DerivedPointer<Vector> v, other;
        DataType type;
        char const* expected;
    };
    Case const cases[] = {
        {Bytes({1}), UShorts({300}), Vector::UnsignedShort, "1 300"},
        {Bytes({1}), Doubles({0.5}), Vector::Double, "1 0.5"},
        {Floats({0.5}), Doubles({0.25}), Vector::Double, "0.5 0.25"},
        {Shorts({1}), Bytes({2}), Vector::Int, "1 2"},
        {Shorts({-1}), Bytes({2}), Vector::Double, "-1 2"},
        {Chars({}), Bytes({2}), Vector::Short, "2"},
        {Ints({1}), Ints({}), Vector::Int, "1"},
        {Texts({"a"}), Ints({2}), Vector::String, "a 2"},
        {Ints({2}), Items({DataItem("x")}), Vector::PolyType, "2 x"},
        {Ints({2}, 0.5), Doubles({3.0}), Vector::Double, "2 6"},
        {Ints({2}, 0.5), Ints({3}), Vector::Double, "2 6"},
        {Doubles({2}, 0.5), Ints({3}), Vector::Double, "2 6"},
        {Floats({1.5}), Ints({2}, 2.0), Vector::Float, "1.5 4"},
        {Floats({1.5}), Doubles({2}, 2.0), Vector::Double, "1.5 4"},
        {Ints({3}), Floats({1.5}, 2.0), Vector::Float, "3 3"},
        {Bytes({3}), Bytes({2}, 2.0), Vector::Double, "3 4"},
    };
    for (Case const& c : cases) {
        SCOPED_TRACE(c.v->GetDescription().c_str());
        double const factor = c.v->Factor();
        std::string const other = TextOf(c.other);
        c.v->Append(c.other);
        EXPECT_EQ(c.v->ElemType(), c.type);
        EXPECT_EQ(c.v->Factor(), factor);
        EXPECT_EQ(TextOf(c.v), c.expected);
        EXPECT_EQ(TextOf(c.other), other);
    }
    auto const v = Ints({1});
    v->Append(nullptr);
    auto const pointers = Vector::Create(1, Vector::VoidStar, true, 0, 1.0);
    EXPECT_RAISES(pointers->Append(v), 128,
                  "Vector::Append(): Could not convert another vector in my representation.");
    EXPECT_RAISES(v->Append(pointers), 128,
                  "Conversion not supported: Vector of 1 elements of type signed int");
    EXPECT_RAISES(Items({{}})->Append(Texts({"a"})), 128,
                  "Conversion not supported: Vector of 1 elements of type polytype");
    EXPECT_EQ(TextOf(v), "1");
}
