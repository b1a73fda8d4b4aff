#ifndef MEMBLOCK_EXAMPLES_MEASURE_SEARCH_H
#define MEMBLOCK_EXAMPLES_MEASURE_SEARCH_H

#include <measure/options.h>
#include <measure/outlines.h>
#include <measure/picture.h>
#include <memblock/collections/table.h>
#include <memblock/imaging/image.h>

#include <memory>
#include <optional>

namespace measure {

/// A page as it is searched: one value a pixel, all in memory.
struct SearchedPage {
    NKelmic::DerivedPointer<NKelmic::Image> picture, labels, within; ///< the latter may be null
    PixelScale scale;
};

/// What is found in a page.
struct PageObjects {
    NKelmic::DerivedPointer<NKelmic::Table> table;
    std::optional<double> threshold;  ///< raw; none where labels brought the objects
    std::optional<LabelRuns> objects; ///< where their pixels are needed
    PixelScale scale;
    unsigned long width = 0, height = 0;
};

/// What the library is asked to measure of a page of one sample a pixel. `label_type` is that of
/// the labels, where they bring the objects.
NKelmic::MeasureSetup SetupFor(PageHeader const& page, std::optional<NKelmic::DataType> label_type,
                               double threshold, Options const& options);

/// Find and measure the objects of a page. Throws: Exception, ReadError.
PageObjects SearchPage(SearchedPage const& page, Options const& options);

/// The columns of any page, without rows. Throws: Exception for unknown properties.
NKelmic::DerivedPointer<NKelmic::Table> NoObjects(Options const& options);

} // namespace measure

#endif // MEMBLOCK_EXAMPLES_MEASURE_SEARCH_H
