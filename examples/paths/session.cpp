#include <paths/session.h>

#include <memblock/base/number.h>
#include <memblock/base/text.h>
#include <memblock/vector/vector.h>

#include <algorithm>

namespace paths {

using namespace NKelmic;

namespace {

/// A value as it was typed: a text in quotes, a number, or a text.
DataItem ValueOf(std::string const& text)
{
    if (text.size() > 1 && text.front() == '"' && text.back() == '"')
        return DataItem(text.substr(1, text.size() - 2).c_str());
    bool is_number = true;
    CheckOk handler(is_number);
    double const number = StringToDouble()(text.c_str(), handler);
    if (!is_number)
        return DataItem(text.c_str());
    int const whole = number >= INT_MIN && number <= INT_MAX ? static_cast<int>(number) : 0;
    return whole == number ? DataItem(whole) : DataItem(number);
}

/// The first elements of a vector, behind its description.
std::string Elements(Vector const& vector)
{
    constexpr unsigned int most = 12;
    unsigned int const shown = std::min(vector.Length(), most);
    std::string text = ": ";
    for (unsigned int i = 0; i < shown; ++i) {
        auto const key = safestring(std::to_string(i).c_str());
        DataItem const element = vector.ResolveSubItem(key, throw_always);
        text += (i > 0 ? ", " : "") + std::string(element.GetString().c_str());
    }
    return text + (vector.Length() > most ? ", ..." : "");
}

std::string Shown(DataItem const& item)
{
    if (item.GetType() == it_shortstring || item.GetType() == it_string)
        return item.GetString().c_str(); // whole, where a description cuts
    std::string text = item.GetDescription().c_str();
    if (item.GetType() == it_memblock)
        if (auto const* const vector = MemCast<Vector>(item.GetMemory()))
            text += Elements(*vector);
    return text;
}

} // namespace

bool Session::Answer(std::string const& line)
{
    try {
        auto const sign = line.find('=');
        if (sign == std::string::npos)
            Read(line.c_str());
        else
            Write(line.substr(0, sign).c_str(), line.substr(sign + 1));
        return true;
    } catch (Exception const& error) {
        out_ << "failed: " << error.what() << " (code " << error.Code() << ")\n";
    } catch (std::exception const& error) {
        out_ << "failed: " << error.what() << '\n';
    }
    return false;
}

void Session::Read(safestring const& path)
{
    if (steps_)
        Walk(path);
    out_ << Shown(root_->GetSubItem(path, throw_always)) << '\n';
}

void Session::Write(safestring const& path, std::string const& value)
{
    root_->SetSubItem(path, ValueOf(value), throw_always);
    if (steps_)
        Walk(path);
    out_ << "done\n";
}

/// Go the way of a path by hand: each object resolves one step, what it gives resolves the next.
void Session::Walk(safestring const& path)
{
    DataItem here(root_);
    for (safestring::size_type from = 0; from != safestring::npos;) {
        auto const dot = find_smart_skip_brackets_and_parens(path, ".", from);
        safestring const key = path.substr(from, dot == safestring::npos ? dot : dot - from);
        out_ << "  " << here.GetDescription().c_str() << "\n    resolves \"" << key.c_str()
             << "\"\n";
        here = here.ResolveSubItem(key, throw_never);
        if (here.IsUndefined())
            return; // the read that follows tells why
        from = dot == safestring::npos ? dot : dot + 1;
    }
}

} // namespace paths
