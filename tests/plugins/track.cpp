// A plug-in with a class of its own, built as plug-ins are: on the public headers, hidden
// visibility.
#include <memblock/serial/loader.h>
#include <memblock/vector/vector.h>

using namespace NKelmic;

namespace {

class Track : public Vector {
public:
    static char const* StaticClass() { return "track"; }
    char const* Class() const override { return StaticClass(); }
    bool Conforms(char const* name) const override
    {
        return safestring(name) == StaticClass() || Vector::Conforms(name);
    }
    char const* ClassDescription() const override { return "Track - where something went.\n"; }
    DataItem ResolveSubItem(safestring const& key, ThrowHandlerFunc handler) const override
    {
        if (key == "speed")
            return speed_;
        if (key == "boom")
            Raise(err_request_kind, "This track does not go: %s", *this);
        return Vector::ResolveSubItem(key, handler);
    }
    bool AddConvertArg(safestring const& key, DataItem const& value, ConvertOptions& options,
                       ThrowHandlerFunc handler) const override
    {
        return key == "speed" ? MemBlock::AddConvertArg(key, value, options, handler)
                              : Vector::AddConvertArg(key, value, options, handler);
    }
    PMemBlock ConvertFrom(PMemBlock source, ConvertOptions const& options) const override
    {
        Vector* const vector = MemCast<Vector>(source); // an object that the host made
        if (!vector)
            return {};
        DerivedPointer<Track> track(new Track);
        track->SetTypedChunk(vector->Chunk());
        track->speed_ = options.GetValue("speed", 0).GetInt();
        return track;
    }
    PMemBlock DoClone(int) const override { return PMemBlock(new Track); }

private:
    int speed_ = 1;
};

ClassInfo const classes[] = {{"track", []() -> PMemBlock { return PMemBlock(new Track); }}};
} // namespace

extern "C" int ExportedClasses(ClassInfo const** table, int* count)
{
    *table = classes;
    *count = 1;
    return 0;
}

extern "C" MorvaneVersionInfo const* GetMorvaneVersion()
{
    static MorvaneVersionInfo const version{3, 1, 4, 15, "Jun  2 2009", "2009-06-02", "Tracks"};
    return &version;
}
