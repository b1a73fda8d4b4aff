#include <memblock/core/memblock.h>

#include <memblock/base/text.h>
#include <memblock/core/attempt_internal.h>
#include <memblock/core/memblockimpl.h>
#include <memblock/core/subitem_internal.h>
#include <memblock/logging/logger.h>
#include <memblock/vector/vector.h>

#include <algorithm>
#include <vector>

namespace NKelmic {
namespace {

// The empty entry before the attributes is part of the list that scripts know.
constexpr char const* full_list = "@class,@type,%@refcount,%@self,%@md5,%@subkeys,%@subobjects,"
                                  "%@__address__,@description,@expression,";

bool HasAttribute(MemBlock const& object, int key)
{
    DataItem item;
    return object.PimplIfAny() && object.PimplIfAny()->ExistsSecondaryItem(key, item);
}

safestring FullList(MemBlock const& object)
{
    safestring list = full_list;
    list += HasAttribute(object, MemBlock::key_sticky) ? ",@sticky" : ",%@sticky";
    list += HasAttribute(object, MemBlock::key_transient) ? ",@transient" : ",%@transient";
    return list;
}

safestring ContentList(MemBlock const& object)
{
    safestring list;
    if (HasAttribute(object, MemBlock::key_sticky))
        list += ",@sticky";
    if (HasAttribute(object, MemBlock::key_transient))
        list += ",@transient";
    return list;
}

// The names of a key list as a sorted vector of texts.
DataItem NamesOfList(safestring const& list)
{
    std::vector<safestring> names;
    AnyKeyOfList(list, [&names](KeyListEntry const& entry) {
        names.emplace_back(entry.name.data(), entry.name.size());
        return false;
    });
    std::sort(names.begin(), names.end());
    auto const vector = Vector::Create(names.size(), Vector::String, false, 0, 1.0);
    std::swap_ranges(names.begin(), names.end(), vector->StringPointer());
    return vector;
}

unsigned long AddressOf(MemBlock const& object)
{
    return reinterpret_cast<unsigned long>(&object);
}

bool SetAttribute(MemBlock& object, int key, SafeValue const& value, ThrowHandlerFunc handler,
                  char const* refusal)
{
    PMemBlock const container = MemoryOrNull(value);
    if (!container.Conforms("container")) {
        Report(handler, err_kind, refusal, value);
        return false;
    }
    object.SetSecondaryItem(key, container);
    return true;
}

bool SetSticky(MemBlock& object, SafeValue const& value, ThrowHandlerFunc handler)
{
    return SetAttribute(object, MemBlock::key_sticky, value, handler,
                        "The @sticky attribute must be a container instead of: %s");
}

bool SetTransient(MemBlock& object, SafeValue const& value, ThrowHandlerFunc handler)
{
    return SetAttribute(object, MemBlock::key_transient, value, handler,
                        "The @transient attribute must be a container instead of: %s");
}

bool SetType(MemBlock& object, SafeValue const& value, ThrowHandlerFunc)
{
    object.SetLgType(value.GetString());
    return true;
}

// The keys that every object has.
constexpr KeyTable common_keys{std::to_array<Key<MemBlock>>({
    {"@type",
     [](MemBlock const& o, ThrowHandlerFunc) -> DataItem { return o.LgType2String(o.LgType()); },
     SetType},
    {"@description",
     [](MemBlock const& o, ThrowHandlerFunc) -> DataItem { return o.GetDescription(); }},
    {"@expression",
     [](MemBlock const& o, ThrowHandlerFunc) -> DataItem { return Text("*%u", AddressOf(o)); }},
    {"@refcount", [](MemBlock const& o, ThrowHandlerFunc) -> DataItem { return o.RefCount(); }},
    {"@sticky", [](MemBlock const& o, ThrowHandlerFunc) -> DataItem { return o.GetAttr(true); },
     SetSticky},
    {"@transient", [](MemBlock const& o, ThrowHandlerFunc) -> DataItem { return o.GetAttr(false); },
     SetTransient},
    {"@self", [](MemBlock const& o, ThrowHandlerFunc) -> DataItem { return PMemBlock(&o); }},
    {"@__address__",
     [](MemBlock const& o, ThrowHandlerFunc) -> DataItem {
         return static_cast<long long>(AddressOf(o));
     }},
    {"@class", [](MemBlock const& o, ThrowHandlerFunc) -> DataItem { return o.Class(); }},
    {"@md5", [](MemBlock const& o,
                ThrowHandlerFunc handler) { return o.SecondaryItem(MemBlock::key_md5, handler); }},
    {"@subkeys",
     [](MemBlock const& o, ThrowHandlerFunc handler) {
         return NamesOfList(o.ResolveSubItem("", handler).GetString());
     }},
    {"@subobjects",
     [](MemBlock const& o, ThrowHandlerFunc handler) {
         return NamesOfList(o.ResolveSubItem("*", handler).GetString());
     }},
})};

// Keys that macros of earlier versions wrote without their '@'.
constexpr KeyTable former_keys{std::to_array<KeyName>({
    {"__address__"},
    {"attrcount"},
    {"class"},
    {"columncount"},
    {"columns"},
    {"count"},
    {"imageheight"},
    {"imagewidth"},
    {"keys"},
    {"length"},
    {"md5"},
    {"refcount"},
    {"rowcount"},
    {"self"},
    {"size"},
    {"subkeys"},
    {"subobjects"},
    {"type"},
})};

bool IsFormerKey(safestring const& key, ThrowHandlerFunc handler)
{
    return former_keys.Find(key) && !handler.DoVerb(ThrowHandlerBase::verb_no_backcompat);
}

void LogFormerKey(MemBlock const& object, safestring const& key)
{
    if (Logger::Enabled(topic_backcompatibility, 6))
        Logger::Log(topic_backcompatibility, "subkey", 6,
                    Text("%s: resolved \"%s\" by back-compatibility transform to \"@%s\"\n",
                         object.Class(), key, key));
}

// "@!@" and "@*@": a list key in the quoting of names. A quoted form of these is short, so that a
// miss of a long quoted name copies nothing.
safestring UnquotedListKey(safestring const& key)
{
    if (key.size() <= 2 || key.size() > 15 || key[0] != '@' || key.find('@', 1) == safestring::npos)
        return {};
    safestring name = key;
    UnquoteName(name);
    return name == "!" || name == "*" ? name : safestring();
}

// For handlers that read no words. Made in place and never destroyed.
Exception const& WordlessMiss()
{
    alignas(Exception) static unsigned char room[sizeof(Exception)];
    static Exception const& miss = *new (room) Exception(err_state, safestring(), nullptr);
    return miss;
}

void ReportMiss(safestring const& key, ThrowHandlerFunc handler)
{
    if (handler == throw_never)
        return;
    if (handler.DoVerb(ThrowHandlerBase::verb_only_fact))
        Throw(WordlessMiss(), handler);
    else
        Report(handler, err_state, "Subkey not found: %s", key);
}
} // namespace

DataItem MemBlock::ResolveSubItem(safestring const& key, ThrowHandlerFunc handler) const
{
    if (key.empty() || key == "!")
        return FullList(*this);
    if (key == "*")
        return ContentList(*this);
    if (key[0] != '@') {
        if (IsFormerKey(key, handler)) {
            DataItem item = ResolveSubItem("@" + key, throw_never);
            if (item.IsDefined()) {
                LogFormerKey(*this, key);
                return item;
            }
        }
    } else if (auto const* row = common_keys.Find(key)) {
        return ReadKey(*row, *this, handler);
    } else if (safestring const list_key = UnquotedListKey(key); !list_key.empty()) {
        return ResolveSubItem(list_key, handler);
    }
    ReportMiss(key, handler);
    return {};
}

bool MemBlock::DoSetSubItem(safestring const& key, SafeValue const& value,
                            safestring const& full_path, ThrowHandlerFunc handler)
{
    if (auto const* row = common_keys.Find(key); row && row->write)
        return row->write(*this, value, handler);
    bool const done = IsFormerKey(key, handler) && Attempt(throw_never, [&] {
                          return DoSetSubItem("@" + key, value, full_path, throw_never);
                      });
    if (done) {
        LogFormerKey(*this, key);
        return true;
    }
    Report(handler, err_kind, "Cannot set item \"%s\" (%s) in a %s object.", key, value, Class());
    return false;
}

} // namespace NKelmic
