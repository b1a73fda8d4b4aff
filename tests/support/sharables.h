#ifndef MEMBLOCK_TESTS_SUPPORT_SHARABLES_H
#define MEMBLOCK_TESTS_SUPPORT_SHARABLES_H

#include <memblock/core/safevalue.h>

#include <string>
#include <utility>
#include <vector>

namespace NKelmic {

/// A sharable with a name, which answers verbs as it is told and writes "{name format path}".
class NamedSharable : public ThreadSharable {
public:
    explicit NamedSharable(safestring const& name) : name(name) {}
    safestring GetDescription() const override { return name; }
    ThreadSharablePointer<ThreadSharable> DoClone() const override
    {
        return new NamedSharable(name + "'");
    }
    void DoSerialize(int format, SerializeVisitor&, safestring const& path, Formatter const&,
                     safestring& output) const override
    {
        output += Text("{%s %d %s}", name, format, path);
    }
    DataItem DoVerb(char const* verb, SafeValue const& a, SafeValue const& b) override
    {
        asked.emplace_back(verb, b.IsDefined() ? b.GetString().c_str() : "");
        argument = a;
        return answer;
    }

    safestring name;
    DataItem answer;                                        ///< to every verb
    std::vector<std::pair<std::string, std::string>> asked; ///< verbs with the second argument
    SafeValue argument;                                     ///< the first one of the last verb
};

} // namespace NKelmic

#endif // MEMBLOCK_TESTS_SUPPORT_SHARABLES_H
