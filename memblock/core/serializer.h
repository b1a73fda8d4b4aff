#ifndef MEMBLOCK_CORE_SERIALIZER_H
#define MEMBLOCK_CORE_SERIALIZER_H

#include <memblock/core/safevalue.h>

namespace NKelmic {

/// One row of a table of format words: words of one row mean the same. Unused names are null.
struct MEMBLOCK_API FormatTag {
    int value;
    char const* names[4];
};

/// The words that a table knows (the first two of each row), as "binary, raw, ascii".
MEMBLOCK_API safestring ListTags(FormatTag* table, int n);

/// The form of one serialization: a format number in the option "fmt", and named options.
class MEMBLOCK_API Formatter : public OptionsBase {
public:
    enum format_t {
        ser_binary = 1,
        ser_ascii = 2, ///< also where no format is given
        ser_html = 3,
        ser_xml = 4,
        ser_hdf = 5,
        ser_bmp = 6,
        ser_morvane = 7 ///< the script form; no word chooses it
    };
    enum options_t {
        opt_plot2d = 0,
        opt_plot3d = 1,
        opt_line = 2,
        opt_skipnulls = 3,
        opt_rowindices = 4,
        opt_data_in_end = 5,
        opt_uselocale = 6,
        opt_usecomma = 7,
        opt_shortmemblockdescr = 8,
        opt_detect_numerics = 9
    };
    virtual ~Formatter();

    /// Read format words: one of the formats ("xml"), options ("precision=3") and flags ("plot2d").
    /// A word "fmt", with a value or without, is passed over.
    ///
    /// Returns whether a format was found. If not, or if two contradict each other, "fmt" becomes
    /// the text "ascii", the error of `FindTag` goes to the handler, and the options are still
    /// read.
    bool Init(safestringlist const& list, ThrowHandlerFunc handler);

    /// Throws: "Formatter::HasOption(): unknown option value: %d", code 128.
    bool HasOption(options_t option) const;

    /// Take the words of a table out of the list and give the value of their row.
    ///
    /// Only the first two names of a row are compared, by `strcasecmp`. The long form starts at
    /// row `start`, gives -1 if no word is there, and when `quiet` lets the first of two
    /// contradicting words win. Throws:
    /// "Conflicting tags in format string: %s", code 128, and from the short form
    /// "No relevant tag was found in format string: %s", code 128, both with the list as it came.
    static int FindTag(safestringlist& list, FormatTag* table, unsigned n);
    static int FindTag(safestringlist& list, FormatTag* table, unsigned n, unsigned start,
                       bool quiet);

    /// The name of an option; "" for other values.
    static safestring Opt2String(options_t option);

    /// The number in "fmt"; a text there, or nothing, is the text form.
    int FormatNumber() const;
};

/// Goes along a serialization; a class hands each of its children to `Descend`, so that a derived
/// visitor sees every nested object.
class MEMBLOCK_API SerializeVisitor {
public:
    explicit SerializeVisitor(safestring const& name_prefix = safestring())
        : name_prefix_(name_prefix), counter_(0)
    {
    }
    virtual bool DescendIntoScalars() const; // false

    /// Serialize one child. Its path is the parent's, ".", and its name.
    virtual void Descend(DataItem item, int format, safestring const& path,
                         Formatter const& formatter, safestring& output);
    virtual ~SerializeVisitor();

    safestring name_prefix_; ///< of generated variables
    int counter_;            ///< numbers them
};

} // namespace NKelmic

#endif // MEMBLOCK_CORE_SERIALIZER_H
