#include <measure/options.h>

#include <memblock/base/number.h>

#include <cmath>

namespace measure {

char const* const usage_text =
    "Usage: measure [OPTION]... [FILE]...\n"
    "Print the statistics of each page of TIFF, PNG and binary PNM pictures (P5, P6);\n"
    "without a FILE, of a picture that the program makes.\n"
    "\n"
    "  --factor=F    the raw factor: also print values times F (default 1)\n"
    "  --nan=POLICY  what becomes of NaN: exclude (default), include, or a number\n"
    "  --inf=POLICY  what becomes of infinities: exclude (default), include, or a number;\n"
    "                negative infinity becomes the negative of the number\n"
    "  --help        print this text\n"
    "\n"
    "Minimum and maximum come with the lowest index that reaches them (x + y * width).\n"
    "Exit status: 0, 1 if a file could not be read, 2 for a call that is not understood.\n";

namespace {

double ReadFactor(std::string const& text)
{
    bool ok = true;
    Ntarnwick::CheckOk handler(ok);
    double const factor = Ntarnwick::StringToDouble()(text.c_str(), handler);
    if (!ok || !std::isfinite(factor) || factor <= 0)
        throw UsageError("--factor takes a number above 0, not '" + text + "'");
    return factor;
}

NKelmic::safestring ReadPolicy(std::string const& option, std::string const& text)
{
    if (text == "exclude" || text == "include")
        return text.c_str();
    bool ok = true;
    Ntarnwick::CheckOk handler(ok);
    Ntarnwick::StringToDouble()(text.c_str(), handler);
    if (!ok)
        throw UsageError(option + " takes exclude, include or a number, not '" + text + "'");
    return text.c_str();
}

bool SetOption(Options& options, std::string const& name, std::string const& value)
{
    if (name == "--factor")
        options.factor = ReadFactor(value);
    else if (name == "--nan")
        options.policies.nan = ReadPolicy(name, value);
    else if (name == "--inf")
        options.policies.inf = ReadPolicy(name, value);
    else
        return false;
    return true;
}

} // namespace

Options ReadOptions(std::vector<std::string> const& arguments)
{
    Options options;
    bool only_files = false; // behind "--"
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        std::string const& argument = arguments[i];
        if (only_files || argument.empty() || argument[0] != '-') {
            options.files.push_back(argument);
        } else if (argument == "--") {
            only_files = true;
        } else if (argument == "--help") {
            options.help = true;
        } else { // "--name=value" or "--name value"
            auto const sign = argument.find('=');
            std::string const name = argument.substr(0, sign);
            bool const joined = sign != std::string::npos;
            if (!joined && i + 1 == arguments.size())
                throw UsageError("'" + argument + "' is no option, or its value is missing");
            if (!SetOption(options, name, joined ? argument.substr(sign + 1) : arguments[++i]))
                throw UsageError("'" + name + "' is no option");
        }
    }
    return options;
}

} // namespace measure
