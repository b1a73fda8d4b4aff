#ifndef MEMBLOCK_CORE_IMAGECLASS_H
#define MEMBLOCK_CORE_IMAGECLASS_H

namespace NKelmic {

/// Logic classes of images, as `MemBlock::LgType` holds them and files store them. Here, because
/// files of earlier versions are converted below the images: see
/// `PMemBlock::MakeBackwardCompatAutoConversionsToConform`.
enum image_lg_type : int {
    lg_data = 0,
    lg_old_stencil = 3, ///< only in files of earlier versions
    lg_old_mask = 5,    ///< the same
    lg_visual = 11,
    lg_mask = 12,
    lg_stencil = 13
};

} // namespace NKelmic

#endif // MEMBLOCK_CORE_IMAGECLASS_H
