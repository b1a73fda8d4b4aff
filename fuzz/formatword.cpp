// Format words and options, and the forms that come out of them.

#include "fuzz.h"

#include <memblock/serial/serializer.h>
#include <memblock/vector/vectorforms.h>

using namespace NKelmic;

namespace {

DerivedPointer<Vector> Texts()
{
    auto const v = Vector::Create(2, Vector::String, true, 0, 1.0);
    v->SetElem(0, "a<b>\t\"c\"\r\n\r\n\xFF");
    return v;
}

DerivedPointer<Vector> Doubles()
{
    auto const v = Vector::Create(3, Vector::Double, true, 0, 1.0);
    v->SetElem(0, 5e-324);
    v->SetElem(1, -1.7976931348623157e308);
    v->SetElem(2, 1.0 / 3);
    return v;
}
} // namespace

void FuzzOne(std::string const& input)
{
    static auto const texts = Texts();
    static auto const doubles = Doubles();
    static auto const values = Vector::CreateFrom(DataItem(PMemBlock(doubles)));
    safestring const words(input.data(), input.size());
    for (char separator : {'|', ','}) {
        Formatter formatter;
        safestringlist const list(words, separator);
        Ignore([&] { doubles->SerialArgs(list, formatter, throw_always); });
        Ignore([&] { formatter.Init(list, throw_never); });
        SerializeVisitor visitor(words);
        for (auto const& v : {texts, doubles, values})
            for (int format : {formatter.FormatNumber(), 2, 3, 7, 12, 13})
                Ignore([&] {
                    safestring output;
                    v->Serialize(format, visitor, words, formatter, output);
                });
    }
    for (bool full : {false, true}) {
        safestring text = words;
        HtmlQuote(text, full);
    }
    for (int mode : {1, 2, 3, 4})
        Ignore([&] {
            safestring text = words;
            QuoteByMode(text, mode);
        });
}

std::vector<std::string> FuzzSeeds()
{
    return {"xml, plot2d;precision=3\tsep=;",
            "ascii,precision=17",
            "ascii|precision=-1|quotemode=1",
            "html|quotemode=2",
            "ascii,single_line_per_elem,precision=2147483647",
            "raw|bin_fmt=13|blob_threshold=0",
            "binary,raw",
            "xml,html",
            "fmt=7",
            "fmt=ascii|precision=",
            "=|==| = |a=b=c",
            "bin_fmt=7,blob_threshold=-1",
            "precision=1e9|quotemode=x"};
}
