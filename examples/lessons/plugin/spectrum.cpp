// A plug-in library with a class of its own: a vector of intensities that knows the wavelength of
// each. Hosts make it by name and read it by path; they need not know this file.
#include <memblock/core/keytable.h>
#include <memblock/serial/loader.h>
#include <memblock/vector/summary.h>
#include <memblock/vector/vector.h>

using namespace NKelmic;

namespace {

class Spectrum : public Vector {
public:
    static char const* StaticClass() { return "spectrum"; }
    char const* Class() const override { return StaticClass(); }
    bool Conforms(char const* name) const override
    {
        return SameName(name, StaticClass()) || Vector::Conforms(name);
    }
    char const* ClassDescription() const override
    {
        return "Spectrum - a vector of intensities.\n"
               "peak: wavelength of the greatest intensity; start, step: in nanometres\n";
    }
    DataItem ResolveSubItem(safestring const& key, ThrowHandlerFunc handler) const override;

protected:
    PMemBlock DoClone(int mode) const override
    {
        DerivedPointer<Spectrum> copy(new Spectrum(*this));
        if (mode <= 0)
            copy->Pointer(); // makes the buffer private
        return copy;
    }
    bool DoSetSubItem(safestring const& key, SafeValue const& value, safestring const& full_path,
                      ThrowHandlerFunc handler) override;

private:
    static DataItem Peak(Spectrum const& s, ThrowHandlerFunc handler)
    {
        return s.start_ + s.step_ * s.SecondaryInt(key_maxat, handler);
    }
    template <double Spectrum::*field>
    static DataItem Read(Spectrum const& s, ThrowHandlerFunc)
    {
        return s.*field;
    }
    template <double Spectrum::*field>
    static bool Write(Spectrum& s, SafeValue const& value, ThrowHandlerFunc handler)
    {
        bool ok = true;
        CheckOk note(ok);
        double const number = value.GetFloating(note);
        if (!ok) {
            Report(handler, err_value, "A wavelength is a number: %s", value);
            return false;
        }
        s.*field = number;
        s.ContentHasBeenChanged(); // derived values go
        return true;
    }
    static auto const& Keys();

    double start_ = 400;
    double step_ = 1;
};

auto const& Spectrum::Keys()
{
    static constexpr KeyTable keys{std::to_array<Key<Spectrum>>({
        {"peak", Peak},
        {"start", Read<&Spectrum::start_>, Write<&Spectrum::start_>},
        {"step", Read<&Spectrum::step_>, Write<&Spectrum::step_>},
    })};
    return keys;
}

DataItem Spectrum::ResolveSubItem(safestring const& key, ThrowHandlerFunc handler) const
{
    if (auto const* row = Keys().Find(key))
        return row->read(*this, handler);
    return Vector::ResolveSubItem(key, handler);
}

bool Spectrum::DoSetSubItem(safestring const& key, SafeValue const& value,
                            safestring const& full_path, ThrowHandlerFunc handler)
{
    if (auto const* row = Keys().Find(key); row && row->write)
        return row->write(*this, value, handler);
    return Vector::DoSetSubItem(key, value, full_path, handler);
}

ClassInfo const classes[] = {
    {Spectrum::StaticClass(), []() -> PMemBlock { return PMemBlock(new Spectrum); }}};
} // namespace

extern "C" int ExportedClasses(ClassInfo const** table, int* count)
{
    *table = classes;
    *count = 1;
    return 0;
}

extern "C" MorvaneVersionInfo const* GetMorvaneVersion()
{
    static MorvaneVersionInfo const version{1, 0, 0, 0, __DATE__, "2026-01-01", "Spectra"};
    return &version;
}
