#include <memblock/vector/convert.h>

#include <support/raises.h>

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

using namespace NKelmic;

TEST(ElemType, TheSmallestTypeForARangeHasItsOwnBounds)
{
    std::tuple<double, double, DataType> const cases[] = {
        {0, 255, Vector::Byte},
        {0, 255.49, Vector::Byte},
        {0, 255.5, Vector::UnsignedShort},
        {-0.1, 100, Vector::Char},
        {-127.9, 127.4, Vector::Char},
        {-127, 0, Vector::Char},
        {-128, 0, Vector::Short},
        {0, 65535.4, Vector::UnsignedShort},
        {-1, 32767.4, Vector::Short},
        {-32767.4, 0, Vector::Short},
        {-32768, 0, Vector::Int},
        {0, 65536, Vector::UnsignedInt},
        {0, 4294967295.0, Vector::UnsignedInt},
        {0, 4294967295.5, Vector::Double},
        {-2147483648.0, 2147483647.0, Vector::Int},
        {-2147483648.0, 2147483647.5, Vector::Double},
        {0, NAN, Vector::Double},
        {NAN, NAN, Vector::Double},
    };
    for (auto [min, max, expected] : cases)
        EXPECT_EQ(Vector::MinMax2Type(min, max), expected) << min << ".." << max;
}

TEST(ElemType, TheCoverTypesFollowTheTable)
{
    enum { B = 5, C = 4, US = 3, S = 2, T = 10, UI = 1, I = 0, U6 = 16, I6 = 15, F = 6, D = 7 };
    int const order[] = {B, C, US, S, T, UI, I, U6, I6, F, D};
    // With itself and the types before it; the order of two does not matter.
    std::vector<int> const table[] = {
        {B},                               // Byte
        {S, C},                            // Char
        {US, I, US},                       // UnsignedShort
        {I, S, I, S},                      // Short
        {T, I, T, I, T},                   // Triple
        {UI, D, UI, D, UI, UI},            // UnsignedInt
        {I, I, I, I, I, D, I},             // Int
        {U6, D, U6, D, U6, U6, D, U6},     // UnsignedInt64
        {D, I6, D, I6, D, D, I6, D, I6},   // Int64
        {F, F, F, F, F, F, F, F, F, F},    // Float
        {D, D, D, D, D, D, D, D, D, D, D}, // Double
    };
    for (int a = 0; a < 11; ++a)
        for (int b = 0; b <= a; ++b) {
            DataType const x{order[a]}, y{order[b]};
            EXPECT_EQ(ChooseCoverType(x, y), table[a][b]) << TypeToString(x) << TypeToString(y);
            EXPECT_EQ(ChooseCoverType(y, x), table[a][b]) << TypeToString(y) << TypeToString(x);
        }
    EXPECT_EQ(ChooseCoverType(Vector::Int, Vector::String), Vector::String);
    EXPECT_EQ(ChooseCoverType(Vector::String, Vector::Int), Vector::String);
    EXPECT_EQ(ChooseCoverType(Vector::PolyType, Vector::PMemory), Vector::PMemory);
    EXPECT_RAISES(ChooseCoverType(Vector::PMemory, Vector::Byte), 4096,
                  "Function return std::numeric_limits not implemented for data type 'memblock'");
}

TEST(ElemType, SpecsNameATypeByIdWordsOrItsName)
{
    std::pair<char const*, DataType> const cases[] = {
        {"0", Vector::Int},
        {"16", Vector::UnsignedInt64},
        {"byte", Vector::Byte},
        {"signed,byte", Vector::Char},
        {"BYTE;Signed", Vector::Char},
        {"8bpp", Vector::Byte},
        {"16bpp", Vector::UnsignedShort},
        {"signed 16bpp", Vector::Short},
        {"24bpp", Vector::Triple},
        {"unsigned,24bpp", Vector::Triple},
        {"32bpp", Vector::UnsignedInt},
        {"64bpp", Vector::UnsignedInt64},
        {"char", Vector::Char},
        {"unsigned char", Vector::Byte},
        {"short", Vector::Short},
        {"unsigned,short", Vector::UnsignedShort},
        {" unsigned\tshort , int ", Vector::UnsignedShort},
        {"int", Vector::Int},
        {"long", Vector::Int},
        {"integer", Vector::Int},
        {"unsigned", Vector::UnsignedInt},
        {"unsigned,integer", Vector::UnsignedInt},
        {"decimal", Vector::Double},
        {"decimal,32bpp", Vector::Float},
        {"float", Vector::Float},
        {"long double", Vector::Double},
        {"int64", Vector::Int64},
        {"uint64", Vector::UnsignedInt64},
        {"triple", Vector::Triple},
        {"string", Vector::String},
        {"polytype", Vector::PolyType},
        {"voidstar", Vector::VoidStar},
        {"UnsignedShort", Vector::UnsignedShort},
    };
    for (auto [text, expected] : cases)
        EXPECT_EQ(Vector::String2Type(text, throw_always), expected) << text;
    for (int id = 0; id <= greatest_elem_type_id; ++id) // what a type is called names it again
        if (safestring const name = TypeToString(DataType(id)); !name.empty()) {
            EXPECT_EQ(Vector::String2Type(name, throw_always), id) << name.c_str();
        }
}

TEST(ElemType, WrongSpecsGoToTheHandler)
{
    std::pair<char const*, char const*> const cases[] = {
        {"", "Elemtype spec missing."},
        {" ,;\t", "Elemtype spec missing."},
        {"17", "Type value out of range: 17."},
        {"99999999999999999999", "Type value out of range: 18446744073709551615."},
        {"11", "Type not supported: \"11\"."},
        {"unsigned,shor", "Unrecognized elemtype spec: \"shor\"."},
        {"-1", "Unrecognized elemtype spec: \"-1\"."},
        {"signed,unsigned", "Type not supported: \"signed,unsigned\"."},
        {"unsigned,float", "Type not supported: \"unsigned,float\"."},
        {"signed,24bpp", "Type not supported: \"signed,24bpp\"."},
        {"byte,short", "Type not supported: \"byte,short\"."},
        {"decimal,8bpp", "Type not supported: \"decimal,8bpp\"."},
        {"float,int", "Type not supported: \"float,int\"."},
        {"string,int", "Type not supported: \"string,int\"."},
    };
    for (auto [text, message] : cases) {
        EXPECT_RAISES(Vector::String2Type(text, throw_always), 128, message);
        EXPECT_EQ(Vector::String2Type(text, throw_never), Vector::NoType);
    }
}
