#ifndef MEMBLOCK_EXAMPLES_PATHS_WORLD_H
#define MEMBLOCK_EXAMPLES_PATHS_WORLD_H

#include <memblock/core/memblock.h>

#include <string>

namespace paths {

/// Open a TIFF, PNG or binary PNM file as the object that paths begin at: a grey picture as an
/// `Image`, one of 8 bit colours as an `Image` of `Triple`, a stack of equal pages as a `DataCube`.
/// Throws: measure::ReadError.
NKelmic::PMemBlock OpenPicture(std::string const& path);

/// A container to try paths on: "table", a table of the columns "a" and "b"; "image", a small
/// picture; "note", a text.
NKelmic::PMemBlock SmallWorld();

} // namespace paths

#endif // MEMBLOCK_EXAMPLES_PATHS_WORLD_H
