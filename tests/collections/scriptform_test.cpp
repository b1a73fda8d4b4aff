#include <memblock/base/text.h>
#include <memblock/collections/container.h>
#include <memblock/serial/serializer.h>
#include <memblock/vector/vectorforms.h>
#include <support/raises.h>
#include <support/vectors.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <gtest/gtest.h>
#include <limits>
#include <sstream>

using namespace NKelmic;

namespace {

/// Runs scripts as the macro engine does, as far as the script forms go.
class Macro {
public:
    DerivedPointer<Container> const variables = Container::Create();

    void Run(std::string const& script)
    {
        std::istringstream lines(script);
        for (std::string line; std::getline(lines, line);) {
            SCOPED_TRACE(line);
            rest_ = line;
            std::string const word = Upto("(");
            if (word == "set" || word == "Set") {
                std::string const place = Upto("=");
                Store(place, Value());
            } else if (word == "Delete") {
                EXPECT_TRUE(variables->Delete(Upto(")").c_str())) << "nothing to delete";
            } else if (word == "Create") {
                EXPECT_EQ(Upto(","), "\"vector\"");
                int const length = std::stoi(Upto(",")), type = std::stoi(Upto("|"));
                Store(Upto("="), DataItem(Vector::Create(length, DataType(type), true, 0, 1.0)));
            } else if (word == "ConvElems") {
                Convert();
            } else if (word == "Decode") {
                EXPECT_EQ(Upto(", \""), "\"hexadecimal\"");
                std::string const digits = Upto("\"|");
                Store(Upto("="), SafeValue(digits.c_str()));
            } else if (word == "ReadVector") {
                std::string const place = Word(), blob = Word().substr(1);
                EXPECT_EQ(Word(), "raw");
                Store(place, DataItem(FromBytes(Load(blob).GetString(), Word())));
            } else {
                ADD_FAILURE() << "no such statement";
            }
        }
    }

private:
    /// The text ahead of `end`; both are taken.
    std::string Upto(std::string const& end)
    {
        auto const at = rest_.find(end);
        EXPECT_NE(at, std::string::npos) << end << " in " << rest_;
        std::string const head = rest_.substr(0, at);
        rest_.erase(0, at == std::string::npos ? at : at + end.size());
        return head;
    }
    std::string Word()
    {
        Upto("\"");
        return Upto("\"");
    }
    bool Take(std::string const& head)
    {
        bool const there = rest_.rfind(head, 0) == 0;
        if (there)
            rest_.erase(0, head.size());
        return there;
    }

    /// Elements are steps of a path to the library: "a[1].b" is "a.1.b".
    static safestring Path(std::string place)
    {
        std::erase(place, ']');
        std::replace(place.begin(), place.end(), '[', '.');
        return place.c_str();
    }
    DataItem Load(std::string const& place) const
    {
        return variables->GetSubItem(Path(place), throw_always);
    }
    void Store(std::string const& place, SafeValue const& value)
    {
        // No level is made on the way: the script has to make each ahead of what it holds.
        auto const at = place.find_last_of(".[");
        EXPECT_TRUE(at == std::string::npos || Load(place.substr(0, at)).IsDefined());
        variables->SetSubItem(Path(place), value, throw_always);
    }

    SafeValue Value()
    {
        if (Take("\"")) {
            safestring text;
            for (; !rest_.empty() && !Take("\""); rest_.erase(0, 1))
                text += Take("\\") && rest_[0] == 'n' ? '\n' : rest_[0];
            return text;
        }
        if (Take("cnt("))
            return DataItem(Items());
        if (Take("vec("))
            return DataItem(List());
        auto const end = std::min(rest_.find_first_of("*,)"), rest_.size());
        std::string const word = rest_.substr(0, end);
        rest_.erase(0, end);
        if (Take("*"))
            return Load(word).GetDouble() * Value().GetFloating();
        return Number(word);
    }
    SafeValue Number(std::string const& word) const
    {
        if (word == "oo")
            return 2147483647;
        if (variables->exists(word.c_str()))
            return Load(word);
        if (word.find_first_of(".en") != std::string::npos) {
            double real = 0; // whose point is one in every locale
            std::from_chars(word.data(), word.data() + word.size(), real);
            return real;
        }
        long long const n = std::stoll(word);
        return n == static_cast<int>(n) ? SafeValue(static_cast<int>(n)) : SafeValue(n);
    }
    DerivedPointer<Container> Items()
    {
        auto const items = Container::Create();
        for (; !Take(")"); Take(",")) {
            std::string const name = Upto("=");
            items->Put(Value(), name.c_str());
        }
        return items;
    }
    DerivedPointer<Vector> List()
    {
        std::vector<double> numbers;
        std::vector<safestring> texts;
        bool floating = false;
        for (; !Take(")"); Take(",")) {
            SafeValue const value = Value();
            floating |= value.GetType() == it_double;
            if (value.IsString())
                texts.push_back(value.GetString());
            else
                numbers.push_back(value.GetFloating());
        }
        if (!texts.empty())
            return Texts(texts);
        return floating ? Doubles(numbers) : Ints(std::vector<int>(numbers.begin(), numbers.end()));
    }

    void Convert()
    {
        std::string const name = Upto(",");
        bool const floating = Word() == "floating";
        Upto(",");
        unsigned long const bytes = std::stoul(Upto(","));
        bool const is_signed = Word() == "signed";
        for (int id = 0; id <= Vector::UnsignedInt64; ++id)
            if (auto const type = DataType(id);
                IsInSet<NumericTypes>(type) && Vector::SizeOf(type) == bytes &&
                IsInSet<FloatTypes>(type) == floating && IsSigned(type) == is_signed)
                return VectorOf(Load(name).GetMemory())->SetElemType(type, true, false);
        ADD_FAILURE() << "no such element type";
    }
    static bool IsSigned(DataType type)
    {
        return IsInSet<FloatTypes>(type) || IsInSet<SignedTypes>(type);
    }
    static DerivedPointer<Vector> FromBytes(safestring const& digits, std::string const& type)
    {
        auto const elem = Vector::String2Type(type.c_str(), throw_always);
        std::size_t const size = digits.size() / 2;
        auto const v = Vector::Create(size / Vector::SizeOf(elem), elem, true, 0, 1.0);
        for (std::size_t i = 0; i < size; ++i)
            static_cast<unsigned char*>(v->Pointer())[i] =
                hex2byte(static_cast<unsigned char>(digits[2 * i]),
                         static_cast<unsigned char>(digits[2 * i + 1]));
        return v;
    }

    std::string rest_;
};

/// Containers in each other, two a level, with a vector that takes statements of its own.
DerivedPointer<Container> Tree(int depth)
{
    auto const c = Cnt("depth", depth, "gray", DataItem(Bytes({1, 2}, 0.5)));
    for (char const* name : {"one", "two"})
        if (depth > 1)
            c->Put(DataItem(Tree(depth - 1)), name);
    return c;
}

} // namespace

TEST(ScriptForm, MakesEveryNestingOfContainersAndVectorsAgain)
{
    PMemBlock const cases[] = {
        Cnt("int", -7, "long", 1LL << 40, "oo", 2147483647, "real", 0.1, "big", -1.5e300, "text",
            "", "long_text", "\"a text\" of more than twenty bytes\\\n,=)"),
        Tree(1),
        Tree(2),
        Tree(5),
        Doubles({0.1, 2.0 / 3, -std::numeric_limits<double>::infinity()}),
        Doubles({1, 2, 100000}),
        Doubles({}),
        Floats({0.1F, 3e10F}, 2.0),
        Int64s({1, -2}),
        Triples({0xFFFFFFU}),
        UShorts(std::vector<unsigned short>(33, 513), 0.25),
        Texts({"a\"\n", "", "b,)"}),
        Items({DataItem(5), DataItem("a"), DataItem(), DataItem(0.5), DataItem(Tree(2))}),
        Objects({Tree(3), PMemBlock(), Objects({Tree(2), Shorts({1}), Objects({Ints({})})})}),
        Cnt("list", DataItem(Objects({Tree(2), Objects({Tree(3)})})), "after", 1),
    };
    Formatter formatter;
    formatter.SetValue("bin_fmt", 13);
    for (PMemBlock const& original : cases) {
        for (char const* place : {"r", "home.r", "home.list[1].r"}) {
            SerializeVisitor visitor("tmp");
            safestring script;
            original->Serialize(Formatter::ser_morvane, visitor, place, formatter, script);
            SCOPED_TRACE(script.c_str());
            Macro macro;
            macro.variables->Put(
                DataItem(Cnt("list", DataItem(Objects({Cnt("a", 1), Cnt("b", 2)})))), "home");
            macro.Run(script.c_str());
            bool const below = std::strchr(place, '.') != nullptr;
            EXPECT_EQ(macro.variables->Count(), below ? 1u : 2u) << "temporary ones are gone";
            char const* const path = std::strchr(place, '[') ? "home.list.1.r" : place;
            PMemBlock const copy = macro.variables->GetSubItem(path, throw_always).GetMemory();
            ASSERT_TRUE(copy);
            EXPECT_EQ(copy->GetSubItem("@md5", throw_always).GetString(),
                      original->GetSubItem("@md5", throw_always).GetString());
        }
    }
}
