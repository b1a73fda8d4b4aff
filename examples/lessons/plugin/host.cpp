// A host that loads a plug-in library and works on objects of its class, by name and by path.
#include <memblock/serial/loader.h>
#include <memblock/vector/vector.h>

#include <cstdio>

using namespace NKelmic;

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: host LIBRARY\n");
        return 2;
    }
    std::printf("known ahead: %s\n", MemBlock::Factory().GetInstance("spectrum") ? "yes" : "no");
    void* const library = LoadSharedLib(argv[1], 0);
    if (!library || !RegisterMemBlockLibrary(argv[1], nullptr, 0))
        return 1;
    std::printf("loaded version %d.%d\n%s", LibVersion(library, lv_major),
                LibVersion(library, lv_minor), ClassDescription("spectrum").c_str());

    PMemBlock const object = MemBlock::Factory().GetInstance("spectrum");
    DerivedPointer<Vector> const vector(object); // it is one: what works on vectors works on it
    for (int intensity : {3, 8, 21, 13})
        vector->Append(Vector::CreateFrom(intensity));
    object->SetSubItem("start", 500, throw_always);
    object->SetSubItem("step", 2.5, throw_always);
    std::printf("peak at %g nm, mean %g\n", object->GetSubItem("peak", throw_always).GetDouble(),
                object->GetSubItem("mean", throw_always).GetDouble());

    DerivedPointer<Vector> const copy(object->Clone(true));
    copy->SetElem(0, 99);
    std::printf("%s: peak at %g nm, of the first still at %g nm\n", copy->Class(),
                copy->GetSubItem("peak", throw_always).GetDouble(),
                object->GetSubItem("peak", throw_always).GetDouble());
    try {
        object->SetSubItem("step", "wide", throw_always);
    } catch (Exception const& e) {
        std::printf("error %u: %s\n", e.Code(), e.what());
    }
}
