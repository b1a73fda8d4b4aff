#include <memblock/collections/table.h>

#include "container_fixture.h"

#include <support/failing_alloc.h>
#include <support/raises.h>
#include <support/vectors.h>

#include <cmath>
#include <functional>
#include <gtest/gtest.h>

using namespace NKelmic;

namespace {

DerivedPointer<Table> Sample()
{
    return Table::Create("a", Ints({1, 2, 3}), "b", Doubles({0.5, 1.5, 2.5}), "c",
                         Texts({"x", "y", "z"}));
}

safestring Expression(DerivedPointer<Table> const& t)
{
    safestring message;
    EXPECT_TRUE(t->Consistent(message, true)) << message.c_str();
    return t->GetExpression();
}

DataItem Read(DerivedPointer<Table> const& t, char const* path)
{
    return t->GetSubItem(path, throw_always);
}

} // namespace

TEST(Table, NamesItsColumnsAsSpreadsheetsDo)
{
    struct {
        int index;
        char const* name;
    } const cases[] = {{-1, ""},
                       {0, "A"},
                       {25, "Z"},
                       {26, "AA"},
                       {701, "ZZ"},
                       {702, "AAA"},
                       {2147483647, "FXSHRXX"}};
    for (auto const& c : cases)
        EXPECT_STREQ(DefaultColName(c.index).c_str(), c.name);
    EXPECT_STREQ(Describe(Table::Create(2, 3, Vector::Byte).Pointer()).c_str(),
                 "Table, 2 rows, 3 cols: A, B, C");
}

TEST(Table, TakesItsRowCountFromTheFirstColumnAndRefusesWhatDoesNotFit)
{
    auto const t = Table::Create();
    EXPECT_EQ(t->RowCount(), -1);
    EXPECT_EQ(t->SetColumn("my name", Ints({1, 2})), 0);
    EXPECT_EQ(t->ColumnIndex("@MY name@"), 0);
    EXPECT_EQ(t->RowCount(), 2);
    EXPECT_EQ(t->SetColumn("b", Ints({3, 4})), 1);
    EXPECT_EQ(t->SetColumn("1", Ints({5, 6})), 1);
    EXPECT_RAISES(t->SetColumn("3", Ints({1, 2})), 128, "Column index out of range 0..1: 3");
    EXPECT_RAISES(t->SetColumn("", Ints({1, 2})), 128, "Table column name cannot be empty");
    EXPECT_RAISES(t->SetColumn("x", nullptr), 128,
                  "Table::SetColumn(): new column pointer is NULL, table unchanged: Table, 2 rows, "
                  "2 cols: @my name@, b");
    EXPECT_RAISES(t->SetColumn("x", Ints({1})), 128,
                  "Table::SetColumn(): new column \"x\" is of different length than other columns, "
                  "must be 2: Vector of 1 elements of type signed int");
    EXPECT_RAISES(t->ReplaceColumn(0, "a b", Ints({1, 2})), 128,
                  "Table column name is not alphanumeric: a b");
    EXPECT_RAISES(t->ReplaceColumn(2, "a", Ints({1, 2})), 128, "No such column in the table: 2");
    EXPECT_STREQ(Expression(t).c_str(), "tbl(@my name@=vec(1,2),b=vec(5,6))");
    t->Erase(-1, 1);
    EXPECT_RAISES(t->Erase(0, -1), 128, "Vector::Erase() called with illegal parameters: 0, -1");
    t->Erase(0, 1);
    EXPECT_STREQ(Expression(t).c_str(), "tbl(b=vec(5,6))");
    t->DeleteColumn("b");
    EXPECT_EQ(t->RowCount(), -1);
}

TEST(Table, KeepsNamesAndColumnsTogetherInEveryChangeOfItsStructure)
{
    auto const t = Sample();
    auto const numbers = Table::Create(2, 2, Vector::Double);
    DerivedPointer<Table> const copy(numbers->Clone(false));
    EXPECT_TRUE(*numbers == *copy);
    copy->Column(1)->SetElem(1, 0.5);
    EXPECT_FALSE(*numbers == *copy);
    SetTableColumnOrder(t, "c, nosuch\tb");
    EXPECT_STREQ(t->GetDescription().c_str(), "Table, 3 rows, 3 cols: c, b, a");
    SwapTableColumns(t, 0, 2);
    EXPECT_STREQ(t->GetDescription().c_str(), "Table, 3 rows, 3 cols: a, b, c");
    EXPECT_STREQ(Describe(t->CloneSlice(1, 3).Pointer()).c_str(), "Table, 3 rows, 2 cols: b, c");
    EXPECT_EQ(DerivedPointer<Table>(t->CloneSlice(0, 0))->RowCount(), -1);
    static_cast<Vector&>(*t).ResizeVector(4, true, true);
    // The names "A" to "C" are taken, whatever their case.
    EXPECT_STREQ(Expression(t).c_str(),
                 "tbl(a=vec(1,2,3),b=vec(0.5,1.5,2.5),c=vec(\"x\",\"y\",\"z\"),D=vec(0,0,0))");
    EXPECT_ANY_THROW(t->SetElemType(Vector::Int, true, false));
    // As a vector, too: who knows no table takes the names along.
    Vector& plain = *t;
    plain.Erase(1, 1);
    EXPECT_STREQ(t->GetDescription().c_str(), "Table, 3 rows, 3 cols: a, c, D");
    plain.ShiftVector(-1);
    plain.ShiftVector(1);
    t->SetColumn("0", Ints({7, 8, 9}));
    EXPECT_STREQ(Expression(t).c_str(), "tbl(A=vec(7,8,9),c=vec(\"x\",\"y\",\"z\"),D=vec(0,0,0))");
    plain.SetTypedChunk(cref(Objects({Ints({1, 2, 3})})).Chunk());
    EXPECT_STREQ(Expression(t).c_str(), "tbl(A=vec(1,2,3))");
    plain.Erase(0, 9);
    plain.SetTypedChunk(cref(Objects({Ints({1}), Ints({2})})).Chunk());
    EXPECT_STREQ(Expression(t).c_str(), "tbl(A=vec(1),B=vec(2))");
}

TEST(Table, StaysWholeWhateverIsDoneToItAsAVector)
{
    PMemBlock const column = Ints({7, 8, 9}), shorter = Ints({7});
    struct {
        char const* name;
        std::function<void(DerivedPointer<Vector> const&)> work;
        char const* result; ///< of `Sample`; null where it is refused
    } const cases[] = {
        {"column", [&](auto& v) { v->SetElem(1, column); },
         "tbl(a=vec(1,2,3),b=vec(7,8,9),c=vec(\"x\",\"y\",\"z\"))"},
        {"null", [](auto& v) { v->SetElem(1, PMemBlock()); }, nullptr},
        {"itself", [](auto& v) { v->SetElem(1, PMemBlock(v)); }, nullptr},
        {"container", [](auto& v) { v->SetElem(1, PMemBlock(Container::Create())); }, nullptr},
        {"shorter", [&](auto& v) { v->SetElem(1, DataItem(shorter)); }, nullptr},
        {"double", [](auto& v) { v->SetElem(1, 0.5); }, nullptr},
        {"int", [](auto& v) { v->SetElem(1, 5); }, nullptr},
        {"unsigned", [](auto& v) { v->SetElem(1, 5U); }, nullptr},
        {"long", [](auto& v) { v->SetElem(1, 5LL); }, nullptr},
        {"unsigned long", [](auto& v) { v->SetElem(1, 5ULL); }, nullptr},
        {"text", [](auto& v) { v->SetElem(1, "t"); }, nullptr},
        {"fill", [&](auto& v) { v->Fill(column); }, "tbl(a=vec(7,8,9),b=vec(7,8,9),c=vec(7,8,9))"},
        {"fill with a number", [](auto& v) { v->Fill(5); }, nullptr},
        {"clear", [](auto& v) { v->Clear(); }, nullptr},
        {"append", [&](auto& v) { v->Append(Objects({column})); },
         "tbl(a=vec(1,2,3),b=vec(0.5,1.5,2.5),c=vec(\"x\",\"y\",\"z\"),D=vec(7,8,9))"},
        {"append itself", [](auto& v) { v->Append(v); },
         "tbl(a=vec(1,2,3),b=vec(0.5,1.5,2.5),c=vec(\"x\",\"y\",\"z\"),D=vec(1,2,3),"
         "E=vec(0.5,1.5,2.5),F=vec(\"x\",\"y\",\"z\"))"},
        {"append shorter",
         [&](auto& v) {
             v->Append(Objects({column, shorter}));
         },
         nullptr},
        {"append numbers",
         [](auto& v) {
             v->Append(Ints({1, 2, 3}));
         },
         nullptr},
        {"other columns", [&](auto& v) { v->SetTypedChunk(cref(Objects({column})).Chunk()); },
         "tbl(a=vec(7,8,9))"},
        {"more columns",
         [&](auto& v) {
             v->SetTypedChunk(cref(Objects({column, column, column, column})).Chunk());
         },
         "tbl(a=vec(7,8,9),b=vec(7,8,9),c=vec(7,8,9),D=vec(7,8,9))"},
        {"other lengths", [&](auto& v) { v->SetTypedChunk(cref(Objects({shorter})).Chunk()); },
         nullptr},
        {"another type",
         [](auto& v) {
             v->SetTypedChunk(cref(Ints({1, 2, 3})).Chunk());
         },
         nullptr},
        {"memory of columns",
         [&](auto& v) {
             Objects({column, column, column})->TransferOwnerShip(v);
         },
         "tbl(a=vec(7,8,9),b=vec(7,8,9),c=vec(7,8,9))"},
        {"memory of others",
         [&](auto& v) {
             v->UseMemoryOf(Objects({column, shorter, column}));
         },
         nullptr},
        {"gives its memory away",
         [](auto& v) {
             v->TransferOwnerShip(Objects({PMemBlock(), PMemBlock(), PMemBlock()}));
         },
         nullptr},
        {"first index", [](auto& v) { v->SetFirstIndex(1); }, nullptr},
        {"insert", [&](auto& v) { v->Insert(0, column); }, nullptr},
        {"fewer", [](auto& v) { v->ResizeVector(1, true, true); }, "tbl(a=vec(1,2,3))"},
        {"more", [](auto& v) { v->ResizeVector(4, true, true); },
         "tbl(a=vec(1,2,3),b=vec(0.5,1.5,2.5),c=vec(\"x\",\"y\",\"z\"),D=vec(0,0,0))"},
        {"erase", [](auto& v) { v->Erase(0, 2); }, "tbl(c=vec(\"x\",\"y\",\"z\"))"},
        {"erase the tail", [](auto& v) { v->Erase(1, 2); }, "tbl(a=vec(1,2,3))"},
        {"shift down", [](auto& v) { v->ShiftVector(-2); }, "tbl(c=vec(\"x\",\"y\",\"z\"))"},
    };
    for (auto const& c : cases) {
        SCOPED_TRACE(c.name);
        safestring const before = Expression(Sample());
        bool done = false;
        memtest::FailEach([&](auto const& attempt) {
            auto const t = Sample();
            done = attempt([&] { c.work(DerivedPointer<Vector>(t)); });
            EXPECT_STREQ(Expression(t).c_str(), done && c.result ? c.result : before.c_str());
            EXPECT_TRUE(cref(t).ResolveSubItem("@columns", throw_never).IsDefined());
        });
        EXPECT_EQ(done, c.result != nullptr);
    }
    auto const fresh = Table::Create();
    fresh->Append(Objects({column}));
    EXPECT_STREQ(Expression(fresh).c_str(), "tbl(A=vec(7,8,9))");
    EXPECT_EQ(fresh->RowCount(), 3);
}

TEST(Table, ThatHoldsItselfHasAnEndAndOneOfWrongColumnsIsNoDanger)
{
    auto const outer = Table::Create("x", Ints({1}));
    auto const inner = Table::Create("y", DerivedPointer<Vector>(outer));
    outer->SetColumn("x", DerivedPointer<Vector>(inner));
    auto const other = Table::Create("x", Ints({1}));
    other->SetColumn("x",
                     DerivedPointer<Vector>(Table::Create("y", DerivedPointer<Vector>(other))));
    safestring message;
    EXPECT_TRUE(outer->Consistent(message, true)) << message.c_str();
    EXPECT_FALSE(*outer == *other);
    EXPECT_TRUE(*outer == *outer);
    outer->Erase(0, 1);
    other->Erase(0, 1);

    for (PMemBlock const& wrong : {PMemBlock(), PMemBlock(Container::Create())}) {
        auto const t = Sample();
        t->PMemoryPointer()[1] = wrong; // past all that a table looks at
        EXPECT_ANY_THROW(t->AppendRow(*Cnt("a", 1), true, true));
        EXPECT_ANY_THROW(t->AppendRows(*Sample(), true));
        EXPECT_EQ(t->Column(0)->Length(), 3u);
        for (char const* key : {"@toprow", "@expression"})
            EXPECT_TRUE(t->ResolveSubItem(key, throw_never).IsUndefined());
        EXPECT_FALSE(t->Consistent(message, true));
    }
}

TEST(Table, DescribesASparseMatrix)
{
    auto const t = Table::Create("Left", Ints({0}), "Right", Ints({1}), "Value", Floats({2}));
    t->SetSubItem("@sticky.is_sparsematrix", 1, throw_always);
    EXPECT_STREQ(t->GetDescription().c_str(), "Sparse matrix ?x? of type float");
    t->SetSubItem("@sticky.max_size", DataItem(Ints({3, 4})), throw_always);
    EXPECT_STREQ(t->GetDescription().c_str(), "Sparse matrix 3x4 of type float");
    t->DeleteColumn("left");
    EXPECT_STREQ(t->GetDescription().c_str(),
                 "Sparse matrix: invalid (Left or Right column is missing)");
}

TEST(TableRows, FitTypesAsTheMappingTells)
{
    for (int elem = 0; elem <= 16; ++elem) {
        auto const type = static_cast<DataType>(elem);
        bool const narrow = elem <= 5 || elem == 10 || elem >= 15;
        EXPECT_EQ(DataTypeFitting(it_double, type), !narrow) << elem;
        EXPECT_EQ(FindCoverTypeForNonFittingType2(it_double, type), narrow ? 7 : elem);
    }
    EXPECT_FALSE(DataTypeFitting(it_shortstring, Vector::String)) << "a row passes it as a string";
    EXPECT_EQ(FindCoverTypeForNonFittingType2(it_int, Vector::Byte), 11);
    EXPECT_EQ(FindCoverTypeForNonFittingType2(it_pointer, Vector::Byte), 14);
}

TEST(TableRows, GrowAllColumnsAndWidenOrAddThemForTheirValues)
{
    auto const t = Sample();
    auto const shared = t->Column("a");
    t->AppendRow(*Cnt("A", 4.5, "c", "w"), false, true);
    EXPECT_STREQ(Expression(t).c_str(), "tbl(a=vec(1,2,3,4.5),b=vec(0.5,1.5,2.5,nan),c=vec(\"x\","
                                        "\"y\",\"z\",\"w\"))");
    EXPECT_EQ(shared->Length(), 3u);
    t->AppendRow(*Cnt("a", 1, "b", 2, "c", "v", "new one", 7.5, "n", "t"), true, false);
    EXPECT_STREQ(t->GetDescription().c_str(), "Table, 5 rows, 5 cols: a, b, c, n, @new one@");
    EXPECT_TRUE(std::isnan(t->Column(4)->Elem(3)));
    t->AppendRow(*t->GetRow(4), true, false); // the quoted name is no new one
    EXPECT_STREQ(Listed(t->GetRow(5)).c_str(), "@new one@=7.5 a=1 b=2 c=v n=t");
    EXPECT_FALSE(t->GetRow(6));

    auto const two = Sample();
    two->AppendRows(*two, true);
    two->AppendRows(
        *Table::Create("b", Ints({9}), "d", Floats({1.5F}), "e", Ints({8}), "f", Ints({7})), true);
    EXPECT_STREQ(
        Expression(two).c_str(),
        "tbl(a=vec(1,2,3,1,2,3,0),b=vec(0.5,1.5,2.5,0.5,1.5,2.5,9),c=vec(\"x\",\"y\",\"z\","
        "\"x\",\"y\",\"z\",\"\"),d=vec(nan,nan,nan,nan,nan,nan,1.5),e=vec(0,0,0,0,0,0,8),"
        "f=vec(0,0,0,0,0,0,7))");

    // 29 * 0.01 / 0.01 is below 29.
    auto const scaled = Table::Create();
    scaled->AppendRows(*Table::Create("p", Bytes({29}, 0.01)), true);
    EXPECT_EQ(TextOf(scaled->Column(0)), "29");

    auto const empty = Table::Create();
    empty->AppendRow(*Cnt("x", 1, "y", 2.5), true, true);
    EXPECT_STREQ(Expression(empty).c_str(), "tbl(x=vec(1),y=vec(2.5))");
}

TEST(TableRows, LeaveTheTableAsItWasIfAValueIsRefused)
{
    auto const t = Table::Create("a", Ints({1}), "b", Bytes({2}));
    safestring const before = Expression(t);
    // The first column has become floating by the time the second one refuses.
    EXPECT_ANY_THROW(t->AppendRow(*Cnt("a", 1.5, "b", 300), true, true));
    EXPECT_STREQ(Expression(t).c_str(), before.c_str());
    EXPECT_EQ(t->Column(0)->ElemType(), Vector::Int);
    EXPECT_RAISES(t->AppendRow(*Cnt("a", 1, "b", 2, "c", 3, "17", 4, "A0", 5), true, true), 128,
                  "Column name cannot be numeric (column index 2): 17");
    EXPECT_ANY_THROW(t->AppendRows(*Table::Create("c", Ints({1, 2}), "b", Ints({2, 300})), true));
    EXPECT_STREQ(Expression(t).c_str(), before.c_str());
    EXPECT_RAISES(Table::Create()->SetRowCount(2), 128,
                  "Cannot add columns to the table by setting table.length=2: Table, -1 rows, 0 "
                  "cols: ");
}

TEST(TableKeys, TellOfColumnsAndRows)
{
    auto const t = Sample();
    EXPECT_EQ(Read(t, "@columncount").GetInt(), 3);
    EXPECT_EQ(Read(t, "@ROWCOUNT").GetInt(), 3);
    EXPECT_EQ(Read(t, "@length").GetInt(), 3);
    EXPECT_STREQ(Read(t, "@rowrange").GetDescription().c_str(), "[0..3)");
    EXPECT_STREQ(Read(Table::Create(), "@rowrange").GetDescription().c_str(), "[0..0)");
    EXPECT_STREQ(Read(t, "@columns").GetExpression().c_str(), "vec(\"a\",\"b\",\"c\")");
    EXPECT_STREQ(Read(t, "@toprow").GetExpression().c_str(), "cnt(a=1,b=0.5,c=\"x\")");
    EXPECT_STREQ(Read(t, "@bottomrow.c").GetString().c_str(), "z");
    EXPECT_STREQ(Read(t, "@expression").GetString().c_str(), Expression(t).c_str());
    EXPECT_RAISES(Read(t, "@factor"), 128,
                  "Table.factor subkey is not supported. Use Table[0].factor instead.");
    DerivedPointer<Container> const none(Read(Table::Create(), "@toprow").GetMemory());
    EXPECT_EQ(none->Count(), 0u);
    safestring const list = t->ResolveSubItem("!", throw_always).GetString();
    EXPECT_EQ(list.find("@columns,@columncount,@rowcount,@toprow,@bottomrow,%@length,@rowrange,a,"
                        "b,c,length,"),
              0u);
    EXPECT_EQ(t->ResolveSubItem("*", throw_always).GetString().find("a,b,c,length,"), 0u);
}

TEST(TableKeys, ChangeTheTable)
{
    auto const t = Sample();
    auto const set = [&](char const* key, SafeValue const& value) {
        return t->SetSubItem(key, value, throw_always);
    };
    set("column_order", "b");
    set("columns", DataItem(Texts({"p", "q r", "s"})));
    set("a new one", DataItem(Bytes({1, 2, 3})));
    set("1", DataItem(Bytes({4, 5, 6})));
    set("@appendrow", DataItem(Cnt("p", 9)));
    set("@appendrow", DataItem(Table::Create("p", Ints({8}))));
    set("length", 4);
    set("p.0", 0.25);
    EXPECT_STREQ(Expression(t).c_str(), "tbl(p=vec(0.25,1.5,2.5,9),@q r@=vec(4,5,6,0),s=vec(\"x\","
                                        "\"y\",\"z\",\"\"),@a new one@=vec(1,2,3,0))");
    EXPECT_EQ(Read(t, "a new one").GetMemory().Pointer(), t->Column(3).Pointer());

    struct {
        char const* key;
        SafeValue value;
        char const* text;
    } const refused[] = {
        {"columns", 1, "The \"columns\" subkey requires a string vector, this is: 1 (integer)"},
        {"columns", DataItem(Texts({"a", "5", "c", "d"})),
         "Column name cannot be numeric (column index 1): 5"},
        {"columns", DataItem(Texts({"a", "b", "B", "d"})), "Duplicate column name: B"},
        {"@appendrow", 1,
         "@appendrow requires a container or table argument, this is not: 1 (integer)"},
        {"p", 1, "Cannot set column \"p\" to a non-vector: 1 (integer)"},
        {"p.length", 7,
         "Cannot change the length of columns inside a table, change table.@rowcount instead!"},
        {"size", -1, "Number of table rows cannot be negative: -1"},
        {"q r.length", 7,
         "Cannot change the length of columns inside a table, change table.@rowcount instead!"},
        {"_0.@insert:0", 7,
         "Cannot change the length of columns inside a table, change table.@rowcount instead!"},
        {"p.empty_dimensions", "3,4", // by the column itself
         "Dimensions can only be set while there is no data: Vector of 4 elements of type double"},
        {"@factor", 2, "Table.factor subkey is not supported. Use Table[0].factor instead."},
    };
    safestring const before = Expression(t);
    for (auto const& c : refused) {
        EXPECT_RAISES(set(c.key, c.value), 128, c.text);
        EXPECT_STREQ(Expression(t).c_str(), before.c_str()) << c.key;
    }
}

TEST(TableKeys, LeadFromAContainerToASummaryOfAColumn)
{
    auto const c = Cnt("table", DataItem(Sample()));
    EXPECT_EQ(c->GetSubItem("table.a.@mean", throw_always).GetDouble(), 2.0);
    EXPECT_TRUE(c->SetSubItem("table.a.0", 7, throw_always));
    EXPECT_EQ(c->GetSubItem("Table.A.@mean", throw_always).GetDouble(), 4.0);
    EXPECT_TRUE(c->GetSubItem("table.nosuch.@mean", throw_never).IsUndefined());
}
