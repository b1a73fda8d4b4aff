#include <measure/options.h>

#include <measure/forms.h>
#include <memblock/base/number.h>

#include <charconv>
#include <cmath>
#include <functional>
#include <map>

namespace measure {
namespace {

using Value = std::string const&;

[[noreturn]] void Refuse(std::string const& option, std::string const& wanted, Value text)
{
    throw UsageError(option + " takes " + wanted + ", not '" + text + "'");
}

/// Any finite number, or nothing.
std::optional<double> Number(Value text)
{
    bool ok = true;
    Ntarnwick::CheckOk handler(ok);
    double const number = Ntarnwick::StringToDouble()(text.c_str(), handler);
    return ok && std::isfinite(number) ? std::optional(number) : std::nullopt;
}

double ReadFactor(Value text)
{
    auto const factor = Number(text);
    if (!factor || *factor <= 0)
        Refuse("--factor", "a number above 0", text);
    return *factor;
}

NKelmic::safestring ReadPolicy(std::string const& option, Value text)
{
    bool ok = true;
    Ntarnwick::CheckOk handler(ok);
    if (text != "exclude" && text != "include")
        Ntarnwick::StringToDouble()(text.c_str(), handler);
    if (!ok)
        Refuse(option, "exclude, include or a number", text);
    return text.c_str();
}

std::optional<double> ReadThreshold(Value text)
{
    if (text == "otsu")
        return std::nullopt;
    auto const threshold = Number(text);
    if (!threshold)
        Refuse("--threshold", "otsu or a number", text);
    return threshold;
}

long long ReadWhole(std::string const& option, Value text, long long most)
{
    long long number = 0;
    auto const end = std::from_chars(text.data(), text.data() + text.size(), number);
    if (end.ec != std::errc() || *end.ptr || number < 0 || number > most)
        Refuse(option,
               most < INT64_MAX ? "a number up to " + std::to_string(most) : "a number of pixels",
               text);
    return number;
}

/// One of a few words.
template <class T>
T Choose(std::string const& option, std::string const& wanted, Value text,
         std::map<std::string, T> const& words)
{
    auto const found = words.find(text);
    if (found == words.end())
        Refuse(option, wanted, text);
    return found->second;
}

std::string ReadTiffName(std::string const& option, Value text)
{
    if (!text.ends_with(".tif") && !text.ends_with(".tiff"))
        Refuse(option, "the name of a TIFF file (.tif)", text);
    return text;
}

PixelScale ReadPixelSize(Value text)
{
    PixelScale scale;
    if (text != "none" && !ReadScale(text, scale))
        Refuse("--pixel-size", "lengths with a unit, as 0.65um or 0.65um,0.7um, or none", text);
    return scale;
}

/// What an option does, and whether it makes sense for objects only. Those with a value take it;
/// flags get an empty text.
struct Row {
    bool flag, of_objects;
    std::function<void(Options&, Value)> set;
};

using RowMap = std::map<std::string, Row>;
using O = Options;
constexpr bool flag = true, value = false, objects = true, always = false;

/// How the program works.
RowMap CommonRows()
{
    return {
        {"--factor", {value, always, [](O& o, Value v) { o.factor = ReadFactor(v); }}},
        {"--nan", {value, always, [](O& o, Value v) { o.policies.nan = ReadPolicy("--nan", v); }}},
        {"--inf", {value, always, [](O& o, Value v) { o.policies.inf = ReadPolicy("--inf", v); }}},
        {"--format",
         {value, always,
          [](O& o, Value v) {
              if (!IsForm(v))
                  Refuse("--format", "csv, tsv, text, html, xml or json", v);
              o.format = v;
          }}},
        {"--threads",
         {value, always,
          [](O& o, Value v) { o.threads = static_cast<int>(ReadWhole("--threads", v, 1024)); }}},
        {"--output", {value, always, [](O& o, Value v) { o.output = v; }}},
        {"--force", {flag, always, [](O& o, Value) { o.force = true; }}},
        {"--quiet", {flag, always, [](O& o, Value) { o.quiet = true; }}},
        {"--help", {flag, always, [](O& o, Value) { o.help = true; }}},
        {"-h", {flag, always, [](O& o, Value) { o.help = true; }}},
        {"--version", {flag, always, [](O& o, Value) { o.version = true; }}},
        {"--objects", {flag, always, [](O& o, Value) { o.objects.wanted = true; }}},
        {"--report", {value, always, [](O& o, Value v) {
                          if (v.empty())
                              throw UsageError("--report takes a folder");
                          o.report = v;
                          o.objects.wanted = true;
                      }}}};
}

/// How objects are found.
RowMap SearchRows()
{
    return {{"--threshold",
             {value, objects, [](O& o, Value v) { o.objects.threshold = ReadThreshold(v); }}},
            {"--dark", {flag, objects, [](O& o, Value) { o.objects.dark = true; }}},
            {"--touch",
             {value, objects,
              [](O& o, Value v) {
                  o.objects.neighbours = Choose<NKelmic::Neighbours>(
                      "--touch", "4 or 8", v,
                      {{"4", NKelmic::Neighbours::edges}, {"8", NKelmic::Neighbours::corners}});
              }}},
            {"--channel",
             {value, objects,
              [](O& o, Value v) {
                  o.objects.channel = Choose<Channel>("--channel", "r, g, b or grey", v,
                                                      {{"r", Channel::red},
                                                       {"g", Channel::green},
                                                       {"b", Channel::blue},
                                                       {"grey", Channel::grey}});
              }}},
            {"--labels", {value, objects, [](O& o, Value v) { o.objects.labels = v; }}},
            {"--gaps",
             {value, objects,
              [](O& o, Value v) {
                  o.objects.keep_gaps =
                      Choose<bool>("--gaps", "keep or drop", v, {{"keep", true}, {"drop", false}});
              }}},
            {"--and", {value, objects, [](O& o, Value v) { o.objects.within = v; }}}};
}

/// Which objects are kept, and what is measured and written of them.
RowMap MeasureRows()
{
    return {{"--min-area",
             {value, objects,
              [](O& o, Value v) { o.objects.min_area = ReadWhole("--min-area", v, INT64_MAX); }}},
            {"--max-area",
             {value, objects,
              [](O& o, Value v) { o.objects.max_area = ReadWhole("--max-area", v, INT64_MAX); }}},
            {"--edge",
             {value, objects,
              [](O& o, Value v) {
                  o.objects.drop_at_edge =
                      Choose<bool>("--edge", "keep or drop", v, {{"keep", false}, {"drop", true}});
              }}},
            {"--properties", {value, objects, [](O& o, Value v) { o.objects.properties = v; }}},
            {"--pixel-size",
             {value, objects, [](O& o, Value v) { o.objects.scale = ReadPixelSize(v); }}},
            {"--zones", {flag, objects, [](O& o, Value) { o.objects.zones = true; }}},
            {"--summary", {flag, objects, [](O& o, Value) { o.objects.summary = true; }}},
            {"--save-labels",
             {value, objects,
              [](O& o, Value v) { o.objects.label_file = ReadTiffName("--save-labels", v); }}},
            {"--save-outlines", {value, objects, [](O& o, Value v) {
                                     o.objects.outline_file = ReadTiffName("--save-outlines", v);
                                 }}}};
}

RowMap const& Rows()
{
    static RowMap const rows = [] {
        RowMap all = CommonRows();
        all.merge(SearchRows());
        all.merge(MeasureRows());
        return all;
    }();
    return rows;
}

/// What only shows when all options are read.
void CheckTogether(Options const& options, std::string const& object_option)
{
    ObjectOptions const& objects = options.objects;
    if (!object_option.empty() && !objects.wanted)
        throw UsageError(object_option + " needs --objects");
    if (options.files.size() > 1 && !(objects.label_file + objects.outline_file).empty())
        throw UsageError(
            std::string(objects.label_file.empty() ? "--save-outlines" : "--save-labels") +
            " takes one picture at a time");
    if (!objects.labels.empty() && (objects.threshold || objects.dark))
        throw UsageError("--labels brings the objects: leave out --threshold and --dark");
}

} // namespace

Options ReadOptions(std::vector<std::string> const& arguments)
{
    Options options;
    std::string object_option; // the first one
    bool only_files = false;   // behind "--"
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        std::string const& argument = arguments[i];
        if (only_files || argument.empty() || argument[0] != '-') {
            options.files.push_back(argument);
            continue;
        }
        if (argument == "--") {
            only_files = true;
            continue;
        }
        auto const sign = argument.find('='); // "--name=value" or "--name value"
        std::string const name = argument.substr(0, sign);
        bool const joined = sign != std::string::npos;
        auto const found = Rows().find(name);
        if (found == Rows().end())
            throw UsageError("'" + name + "' is no option");
        Row const& row = found->second;
        if (row.flag && joined)
            throw UsageError(name + " takes no value");
        if (!row.flag && !joined && i + 1 == arguments.size())
            throw UsageError("the value of " + name + " is missing");
        row.set(options, row.flag ? "" : joined ? argument.substr(sign + 1) : arguments[++i]);
        if (row.of_objects && object_option.empty())
            object_option = name;
    }
    CheckTogether(options, object_option);
    return options;
}

} // namespace measure
