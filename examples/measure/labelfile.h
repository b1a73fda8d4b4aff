#ifndef MEMBLOCK_EXAMPLES_MEASURE_LABELFILE_H
#define MEMBLOCK_EXAMPLES_MEASURE_LABELFILE_H

#include <measure/outlines.h>

#include <string>
#include <vector>

namespace measure {

/// Write pictures of labels, a page each, as a packed TIFF file of 16 bits; of 32 where a label of
/// any page needs them.
/// Throws: WriteError.
void WriteLabels(std::string const& path, std::vector<LabelRuns const*> const& pages);

/// Write pictures of 8 bits, 255 where an object has its border pixels.
/// Throws: WriteError.
void WriteOutlines(std::string const& path, std::vector<LabelRuns const*> const& pages);

} // namespace measure

#endif // MEMBLOCK_EXAMPLES_MEASURE_LABELFILE_H
