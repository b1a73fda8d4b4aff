#ifndef MEMBLOCK_MEASURE_OBJECTS_H
#define MEMBLOCK_MEASURE_OBJECTS_H

#include <memblock/imaging/datacube.h>
#include <memblock/imaging/image.h>
#include <memblock/imaging/intervalvector.h>
#include <memblock/measure/measurer.h>

namespace NKelmic {

/// Which neighbours of a voxel belong to the same object.
enum class VoxelNeighbours {
    faces = 6,    ///< beside, above, below, before, behind
    corners = 26, ///< and all across edges and corners
};

// Objects as lists of pixel numbers over the picture, ascending within each. Those that are found
// are numbered from 1 by their first pixels. Pixels of the one-pixel frame belong to them as others
// do. Linear in the pixels: rows are cut into runs, and runs that touch are joined.

/// Throws: 512 "A threshold must be a number."; for labels as `ObjectsOfLabels`.
MEMBLOCK_API DerivedPointer<IntervalVector> FindObjects(Image const& image, Segmentation const& by);
/// The connected pixels other than 0.
MEMBLOCK_API DerivedPointer<IntervalVector> FindObjects(Image const& mask, Neighbours neighbours);
/// Object k is the pixels of value k; a value that no pixel has makes an object without pixels.
///
/// Throws: 128 "Labels must be whole numbers, not elements of type \"%s\"."; 512 "Labels must be
/// whole numbers from 0 on: found %d at column %d, row %d.", "Label %u would make as many objects
/// of a picture of %u pixels.".
MEMBLOCK_API DerivedPointer<IntervalVector> ObjectsOfLabels(Image const& labels);
/// The connected voxels of finite values above a threshold, or up to it.
MEMBLOCK_API DerivedPointer<IntervalVector> FindObjects(DataCube const& cube, double threshold,
                                                        bool dark, VoxelNeighbours neighbours);

/// A plane of intensities below the objects: an image, or for voxels a cube, of the size of that in
/// which the objects lie. The name goes, with '_', ahead of the names of its columns.
struct IntensityPlane {
    safestring name;
    DerivedPointer<Vector> values;
};

/// Measure objects that are already there: an `IntervalVector` of pixels or voxels, in which
/// objects may overlap; a `Stencil`; a `Mask`, as one object; an image of labels. Of zones
/// ("subobj") each column is there once for each zone, "zone1_area", "zone2_area" and so on.
///
/// A row for each object, with its number from 1 in column "label". Values are cooked.
/// Throws: 128 "Objects cannot be measured: %s" for what holds none; "Intensities of %s lie not
/// below objects of %s." for another size; as `Measurer` for the options.
MEMBLOCK_API DerivedPointer<Table> MeasureObjects(PMemBlock const& objects,
                                                  std::vector<IntensityPlane> const& intensities,
                                                  MeasureOptions const& options);

/// Find the objects of an image and measure them in one pass, without lists of their pixels. With
/// several threads, jobs of a pool take a part of the rows each; the table is the same.
MEMBLOCK_API DerivedPointer<Table> FindAndMeasure(Image const& image, Segmentation const& by,
                                                  std::vector<IntensityPlane> const& intensities,
                                                  MeasureOptions const& options, int threads = 1);

} // namespace NKelmic

#endif // MEMBLOCK_MEASURE_OBJECTS_H
