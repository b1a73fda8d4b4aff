#include <memblock/core/visitor.h>
#include <memblock/serial/warning.h>
#include <memblock/vector/vector.h>

#include "support/failing_alloc.h"
#include "support/raises.h"
#include "support/vectors.h"
#include "support/warnings.h"

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

using namespace NKelmic;

namespace {

DataItem Read(DerivedPointer<Vector> const& v, char const* key)
{
    return v->ResolveSubItem(key, throw_always);
}

bool Write(DerivedPointer<Vector> const& v, char const* key, SafeValue const& value)
{
    return v->SetSubItem(key, value, throw_always);
}

DataItem Do(DerivedPointer<Vector> const& v, char const* verb, std::vector<SafeValue> argv = {})
{
    return v->DoVerb(verb, static_cast<int>(argv.size()), argv.data());
}

} // namespace

TEST(VectorKeys, TheListsAreWholeTexts)
{
    auto const v = Bytes({1});
    std::string const base = v->MemBlock::ResolveSubItem("", throw_always).GetString().c_str();
    std::string const full =
        "%buffer,%buffersize,factor,min,max,minat,maxat,mean,median,fmedian,sum,stddev,histogram,"
        "dims,%_min,%_max,%_mean,%_median,%_fmedian,%_rough_max," +
        base;
    std::string const head = "length,size,range,elemsize,elemtype,";
    for (char const* key : {"", "!", "@!@"})
        EXPECT_EQ(Read(v, key).GetString().c_str(), head + full);
    EXPECT_EQ(Read(Texts({"a"}), "!").GetString().c_str(), head + "%@vectordata," + full);
    EXPECT_STREQ(Read(v, "*").GetString().c_str(),
                 "length,elemsize,factor,min,max,mean,median,stddev,");
}

TEST(VectorKeys, FactsAndSummaryValuesAreReadByName)
{
    auto const v = Bytes({7, 1, 4, 4}, 2.0);
    struct Case {
        char const* key;
        DataItem value;
    };
    Case const cases[] = {
        {"length", 4},
        {"@SIZE", 4},
        {"elemsize", 1},
        {"elemtype", 5},
        {"factor", 2.0},
        {"buffersize", 4},
        {"max", 14.0},
        {"@min", 2.0},
        {"mean", 8.0},
        {"@mean@", 8.0},
        {"median", 8.0},
        {"fmedian", 8.0},
        {"sum", 32.0},
        {"_max", 7},
        {"_min", 1},
        {"_mean", 4.0},
        {"_median", 4.0},
        {"maxat", 0},
        {"minat", 1},
        {"finitemax", 14.0},
        {"0", 14.0},
        {"_0", 7},
        {"+3", 8.0},
        {"0x1", 2.0},
        {"@expression", "vec(14,2,8,8)"},
    };
    for (auto const& [key, value] : cases)
        EXPECT_EQ(Read(v, key), value) << key << ": " << Read(v, key).GetDescription().c_str();
    EXPECT_EQ(TextOf(VectorOf(Read(Texts({"a"}), "@vectordata").GetMemory())), "a");
    EXPECT_GE(Read(v, "rough_max").GetInt(), 7);
    EXPECT_EQ(TextOf(VectorOf(Read(v, "dims").GetMemory())), "4");
    EXPECT_EQ(TextOf(VectorOf(Read(v, "vectordata").GetMemory())), "7 1 4 4");
    EXPECT_EQ(Read(v, "vector").GetMemory()->SecondaryDouble(103, throw_always), 4.0);
    EXPECT_EQ(Read(Bytes({3}), "max").GetType(), it_double);
    EXPECT_RAISES(Read(v, "histogram"), err_kind, "Cannot calculate histogram");
    EXPECT_TRUE(Bytes({})->ResolveSubItem("max", throw_never).IsUndefined()) << "not 0";
    EXPECT_RAISES(Read(Bytes({}), "max"), err_value,
                  "Vector has zero length, cannot calculate subkey: max");
    EXPECT_EQ(Read(v, "range").GetMemory()->GetDescription(), "[0..4)");
}

TEST(VectorKeys, PositionsAndSlices)
{
    auto const v = Bytes({5, 6, 7, 8});
    std::pair<char const*, char const*> const slices[] = {
        {"1..2", "6 7"},
        {"2..9", "7 8"},
        {"3..1", ""},
        {"0x1..0x2", "6 7"},
        {"1..99999999999", "6 7 8"},
        {"@slice:1:3", "6 7"},
        {"@SLICE:2", "7"},
        {"@slice:0", ""},
        {"@slice: 0 :0x2", "5 6"},
    };
    for (auto const& [key, text] : slices)
        EXPECT_EQ(TextOf(VectorOf(Read(v, key).GetMemory())), text) << key;

    std::pair<char const*, long> const outside[] = {
        {"4", 4},
        {"-1", -1},
        {"_4", 4},
        {"4..5", 4},
        {"1..-1", -1},
        {"4294967296", 4294967296},
        {"99999999999999999999", std::numeric_limits<long>::max()},
    };
    for (auto const& [key, index] : outside)
        EXPECT_RAISES(Read(v, key), err_kind,
                      Text("Vector::ResolveSubItem(): Index out of bounds [0..4): %d ", index));
    for (char const* key : {"1x", "1.5", "1..", "1..x", "1..2 ", "1...2", "-", "+", "0x", "5x10"})
        EXPECT_RAISES(Read(v, key), err_kind, "Invalid subkey: " + safestring(key));
    EXPECT_RAISES(Read(v, "_1x"), err_kind, "Invalid subkey: 1x");
    EXPECT_RAISES(Read(v, "@slice:4:5"), err_precondition,
                  "Vector::CloneSlice(): start index invalid (4): " + v->GetDescription());
    for (char const* key : {"@slice:", "@slice:1:", "@slice:a:2", "@slice:1:2:3", "@slice:-1:2"})
        EXPECT_THROW(Read(v, key), Exception) << key;
    for (char const* key : {"9", "1x", "@slice:9:10", "@slice:x", "_", "nothing", "@"})
        EXPECT_TRUE(v->ResolveSubItem(key, throw_never).IsUndefined()) << key;
    EXPECT_RAISES(Read(v, "_x"), err_state, "Subkey not found: _x");
}

TEST(VectorKeys, AStoredSummaryIsReadWithoutAllocation)
{
    auto const v = Bytes({1, 2, 3});
    safestring const key = "@mean";
    v->ResolveSubItem(key, throw_always);
    memtest::AllocationCount const count;
    EXPECT_EQ(v->ResolveSubItem(key, throw_always).GetDouble(), 2.0);
    EXPECT_EQ(count.All(), 0u);
}

TEST(VectorKeys, ASoftMissBuildsNoTextAndAllocatesNothing)
{
    auto const v = Bytes({1, 2, 3});
    bool ok = true;
    CheckOk check(ok);
    for (safestring const key : {"nothing", "@nothing", "9", "9..10"}) {
        v->ResolveSubItem(key, check); // makes the log and the dummy exception at first use
        ok = true;
        memtest::AllocationCount const count;
        EXPECT_TRUE(v->ResolveSubItem(key, check).IsUndefined()) << key.c_str();
        EXPECT_EQ(count.All(), 0u) << key.c_str();
        EXPECT_FALSE(ok) << key.c_str();
    }
    v->Pimpl();
    ok = true;
    memtest::AllocationCount const count;
    EXPECT_EQ(v->SecondaryDouble(MemBlock::key_double, check), 0); // of several elements
    EXPECT_EQ(count.All(), 0u);
    EXPECT_FALSE(ok);
}

TEST(VectorKeys, TheBufferIsTheVectorsOwn)
{
    WarningLog warnings;
    auto const v = UShorts({1, 2});
    auto bytes = VectorOf(Read(v, "buffer").GetMemory());
    EXPECT_TRUE(warnings.Lines().empty());
    bytes->SetElem(1, 1);
    EXPECT_EQ(TextOf(v), "257 2");
    v->SetElem(0, 9); // from here on each has a buffer of its own
    bytes->SetElem(0, 0);
    EXPECT_EQ(TextOf(v), "9 2");
    EXPECT_EQ(TextOf(bytes), "0 1 2 0");

    auto const copy = v->Clone(true);
    Read(v, "buffer");
    ASSERT_EQ(warnings.Lines().size(), 1u);
    EXPECT_EQ(warnings.Lines()[0].second,
              std::string("The object is in shared use, changing the raw data buffer may alter "
                          "apparently unrelated data: ") +
                  v->GetDescription().c_str());
    auto const texts = Texts({"kept"});
    VectorOf(Read(texts, "buffer").GetMemory())->Fill(DataItem(0));
    EXPECT_EQ(TextOf(texts), "kept") << "bytes of objects are not for writing";
}

TEST(VectorKeys, KeysAreWritten)
{
    auto const v = Bytes({1, 2, 3});
    EXPECT_TRUE(Write(v, "factor", 2.0));
    EXPECT_EQ(Read(v, "1").GetDouble(), 4.0) << "the raw values stay";
    EXPECT_TRUE(Write(v, "@factor", 1));
    EXPECT_TRUE(Write(v, "elemtype", "unsigned,short"));
    EXPECT_EQ(v->ElemType(), Vector::UnsignedShort);
    EXPECT_TRUE(Write(v, "length", 4));
    EXPECT_TRUE(Write(v, "3", 70));
    EXPECT_TRUE(Write(v, "0x0", "9"));
    EXPECT_EQ(TextOf(v), "9 2 3 70");
    EXPECT_TRUE(Write(v, "@insert:1", 5));
    EXPECT_TRUE(Write(v, "@INSERT:5", 6));
    EXPECT_EQ(TextOf(v), "9 5 2 3 70 6");
    EXPECT_TRUE(Write(v, "size", 1));
    EXPECT_EQ(TextOf(v), "9");

    safestring const name = v->GetDescription();
    EXPECT_RAISES(Write(v, "length", -1), err_kind, "Vector length cannot be negative: -1");
    EXPECT_RAISES(Write(v, "1", 0), err_kind,
                  "Vector::SetSubItem(): Index out of bounds [0..1): 1 ");
    EXPECT_RAISES(Write(v, "@insert:3", 0), err_kind,
                  "Insertion into a vector not supported: " + name);
    EXPECT_RAISES(Write(Objects({PMemBlock()}), "@insert:0", 0), err_kind,
                  "Insertion into a vector not supported: Vector of 1 elements of type memblock");
    EXPECT_RAISES(Write(v, "elemtype", "nonsense"), err_kind,
                  "Unrecognized elemtype spec: \"nonsense\".");
    for (auto const& [key, value] :
         std::vector<std::pair<char const*, SafeValue>>{{"-1", 0},
                                                        {"@insert:", 0},
                                                        {"@insert:-1", 0},
                                                        {"@insert:4294967296", 0},
                                                        {"0", "no number"},
                                                        {"0", 70000},
                                                        {"length", "x"},
                                                        {"mean", 1},
                                                        {"_0", 1},
                                                        {"empty_dimensions", "2,3"}})
        EXPECT_FALSE(v->SetSubItem(key, value, throw_never)) << key;
    EXPECT_EQ(TextOf(v), "9");
}

TEST(VectorKeys, DimensionsAreSetByTheVerbOfTheClass)
{
    class Shape : public Vector {
    public:
        int GetRank() const override { return 2; }
        unsigned int GetDimSize(int) const override { return 0; }
        DataItem DoVerb(char const* verb, int argc, SafeValue* argv) override
        {
            if (!SameName(verb, "SetDimSizes"))
                return Vector::DoVerb(verb, argc, argv);
            for (int i = 0; i < argc; ++i)
                sizes += argv[i].GetString() + ";";
            return 1;
        }
        safestring sizes;
    };
    DerivedPointer<Shape> const shape(new Shape);
    EXPECT_TRUE(shape->SetSubItem("empty_dimensions", "3, 4", throw_always));
    EXPECT_EQ(shape->sizes, "3;4;");
    for (char const* bad : {"3,,4", "-1", "x", "5000000000"})
        EXPECT_FALSE(shape->SetSubItem("empty_dimensions", bad, throw_never)) << bad;
    EXPECT_RAISES(Write(Bytes({1}), "empty_dimensions", "1"), err_kind,
                  "Dimensions can only be set while there is no data: Vector of 1 elements of type "
                  "byte");
    EXPECT_RAISES(Write(Bytes({}), "empty_dimensions", "1"), err_kind,
                  "Cannot set item \"empty_dimensions\" (\"1\" (string)) in a vector object.");
}

TEST(VectorVerbs, AnswerByName)
{
    auto const v = Ints({1, -2}, 0.5);
    EXPECT_EQ(Do(v, "getrank").GetInt(), 1);
    EXPECT_EQ(Do(v, "GetDimSize", {0}).GetInt(), 2);
    EXPECT_RAISES(Do(v, "GetDimSize", {1}), err_kind, "No such dimension in Vector: 1");
    EXPECT_RAISES(Do(v, "GetDimSize"), err_kind, "No such dimension in Vector: -1");
    EXPECT_EQ(Do(v, "expr").GetString(), "vec(0.5,-1)");
    EXPECT_EQ(Do(v, "scalar").GetString(), "0.5,-1");
    EXPECT_TRUE(Do(v, "no verb").IsUndefined());
    EXPECT_RAISES(Do(v, "Transpose"), err_kind,
                  "Transposing is supported only for vectors of vectors.");
    auto const columns =
        VectorOf(Do(Objects({Bytes({1, 2}), Bytes({3, 4})}), "Transpose").GetMemory());
    EXPECT_EQ(TextOf(VectorOf(columns->ElemMemory(1))), "2 4");

    auto const self = Objects({PMemBlock(), PMemBlock()});
    self->SetElem(0, PMemBlock(self));
    EXPECT_NE(Do(self, "expr").GetString().find("vec(*"), safestring::npos) << "no endless text";
    self->SetElem(0, PMemBlock());
}

TEST(VectorVerbs, CreateMakesAFilledVector)
{
    auto const v = Vector::Create();
    auto const made = VectorOf(Do(v, "create", {"Vector", "unsigned,short", 3, 7}).GetMemory());
    EXPECT_EQ(made->ElemType(), Vector::UnsignedShort);
    EXPECT_EQ(TextOf(made), "7 7 7");
    EXPECT_EQ(VectorOf(Do(v, "create", {"vector", 7, 0, 0}).GetMemory())->ElemType(),
              Vector::Double);
    EXPECT_RAISES(Do(v, "create", {"vector", 17, 1, 0}), err_kind,
                  "Integer type id out of range [0..16]: 17");
    EXPECT_RAISES(Do(v, "create", {"vector", 11, 1, 0}), err_kind, "Type not supported: \"11\".");
    EXPECT_RAISES(Do(v, "create", {"vector", "voidstar", 1, 0}), err_kind,
                  "Function fill_tmpl not implemented for data type 'voidstar'");
    std::pair<std::vector<SafeValue>, char const*> const wrong[] = {
        {{}, "0 arguments"},
        {{"image", "byte", 1, 0}, "\"image\" (string)"},
        {{"vector", "byte", -1, 0}, "-1 (integer)"},
        {{"vector", "byte", "one", 0}, "\"one\" (string)"},
    };
    for (auto const& [argv, what] : wrong)
        EXPECT_RAISES(Do(v, "create", argv), err_kind,
                      safestring("Invalid Create() usage, should be Create(\"vector\", "
                                 "\"datatype\", length, value), e.g. Create(\"vector\", "
                                 "\"unsigned,short\", 100, 0): ") +
                          what);
}

TEST(VectorVerbs, ALeakedBufferIsNeverReleased)
{
    static int released;
    static unsigned char data[4];
    auto const v = Vector::Create(
        4, Vector::Byte, data, [](void*) { ++released; }, 0, 1.0);
#if defined(__SANITIZE_ADDRESS__)
    __lsan::ScopedDisabler const leaks_on_purpose;
#endif
    EXPECT_EQ(Do(v, "__leak_memory__").GetInt(), 1);
    EXPECT_EQ(v->Length(), 0u);
    v->ResizeVector(2, true, true);
    EXPECT_EQ(released, 0);
}

TEST(VectorWalk, DataAndElementsAreOffered)
{
    class Log : public TraverseVisitor {
    public:
        using TraverseVisitor::VisitStart;
        void VisitVData(TraverseNode const& node, DataType type, void const* data, int length,
                        Vector*) override
        {
            text += Text("%s %d %d %d;", node.Path(), static_cast<int>(type), length,
                         static_cast<unsigned char const*>(data)[0]);
        }
        void VisitStart(TraverseNode const& node, DataItem& item) override
        {
            text += node.Path() + "=" + item.GetString() + ";";
        }
        safestring text;
    };
    auto const bytes = Bytes({65, 66});
    auto const items = Items({DataItem(5), DataItem(bytes)});
    Log log;
    Objects({PMemBlock(items), PMemBlock(bytes)})->Traverse(log, TraverseNode("v"));
    EXPECT_EQ(log.text, "v[0][0]=5;v[0][1].vdata 5 2 65;v[1].vdata 5 2 65;");

    class Exchange : public MemBlockVisitor {
    public:
        using MemBlockVisitor::Visit;
        int Visit(safestring const& path, PMemBlock& block) override
        {
            paths += path + ";";
            if (MemCast<Vector>(block) && block != instead.Pointer() && path.ends_with("[1]"))
                block = instead;
            return go_on;
        }
        PMemBlock instead = Bytes({9});
        safestring paths;
    } exchange;
    items->Entertain(exchange, "x", MemBlock::em_all);
    EXPECT_EQ(exchange.paths, "x;x[1];");
    EXPECT_EQ(items->GetDataItem(1).GetMemory(), exchange.instead);
}

TEST(VectorKeys, ANameInManyQuotesIsTheNameWithoutThem)
{
    auto const v = Doubles({1.5, 2.5});
    for (std::size_t const n : {1UL, 2UL, 7UL, 8UL, 9UL, 20UL, 200000UL}) {
        safestring const quotes(n, '@');
        EXPECT_EQ(v->GetSubItem(quotes + "mean" + quotes, throw_always).GetDouble(), 2.0);
        EXPECT_RAISES(v->GetSubItem(quotes + "x" + quotes, throw_always), err_state,
                      "Subkey not found: x");
    }
    EXPECT_EQ(v->GetSubItem(safestring(200000, '@'), throw_always).GetString(),
              v->GetSubItem("!", throw_always).GetString());
    EXPECT_RAISES(v->GetSubItem(safestring(200001, '@'), throw_always), err_state,
                  "Subkey not found: @");
}

TEST(VectorKeys, TheBytesAreGivenOnceWhereMemoryIsShort)
{
    long const blocks = memtest::LiveBlocks();
    memtest::FailEach([&](auto const& attempt) {
        {
            auto const v = Ints({1, 2});
            DataItem bytes;
            attempt([&] { bytes = v->GetSubItem("buffer", throw_always); });
            EXPECT_EQ(TextOf(v), "1 2");
        }
        EXPECT_EQ(memtest::LiveBlocks(), blocks);
    });
}
