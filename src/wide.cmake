# The second build of the library, for processors of the class x86-64-v3: the same sources with the newer instruction
# set, some of them with vectors of 32 bytes. The loader of the C library takes it from the folder
# glibc-hwcaps/x86-64-v3 beside the library of the base level on its own.

# Files that are built with vectors of 32 bytes. The others keep 16, where the wider ones do not pay.
set(ZORI_FILES_OF_32_BYTES
  arith/abs.cpp arith/alpha_comp.cpp arith/alpha_premul.cpp arith/complement.cpp arith/div.cpp arith/div_constant.cpp
  arith/exp.cpp arith/ln.cpp arith/logic.cpp arith/mul_scale.cpp arith/scaled_constants.cpp arith/scaled_images.cpp
  arith/shift.cpp arith/sqr.cpp arith/sqrt.cpp
  correlation/convolution.cpp correlation/cross_correlation.cpp correlation/square_distance.cpp
  correlation/tile_engine.cpp correlation/tile_transform.cpp
  data/convert.cpp data/copy.cpp data/copy_channels.cpp data/masked.cpp data/mirror.cpp data/scale.cpp data/swap_channels.cpp
  data/transpose.cpp
  filter/bilateral.cpp filter/bilateral_sums.cpp
  filter/general_filter.cpp filter/general_round.cpp filter/general_row_column.cpp filter/general_sums.cpp
  filter/gradients.cpp filter/median.cpp filter/median_color.cpp filter/median_shapes.cpp filter/median_square.cpp
  filter/morphology.cpp filter/morphology_extremes.cpp filter/sharpening.cpp filter/smoothing.cpp
  filter/wiener.cpp
  geometry/remap.cpp geometry/resize_linear.cpp geometry/resize_nearest.cpp geometry/resize_plan.cpp geometry/resize_super.cpp
  geometry/resize_weighted.cpp geometry/sampling.cpp geometry/warp_frame.cpp
  point/compare.cpp point/lut.cpp point/threshold.cpp
  rowkernels/exp_log.cpp
  spectral/block_dct.cpp spectral/dct.cpp spectral/image_transform.cpp spectral/lane_transform.cpp spectral/spectrum_polar.cpp
  spectral/spectrum_product_float.cpp
  spectral/wavelet.cpp
  stats/count_in_range.cpp stats/every.cpp stats/extrema.cpp stats/norms.cpp stats/sum.cpp
  synthetic/windows.cpp
)

# Files that are built as at the base level: the compiler vectorizes their loops of 64-bit integers with the newer
# instruction set, and they become three times slower.
set(ZORI_FILES_OF_THE_BASE_LEVEL spectral/spectrum_layout.cpp spectral/spectrum_product.cpp)

# Files whose functions others of either kind call: they are built at both widths, in a namespace of each.
set(ZORI_FILES_OF_BOTH rowkernels/exp_log.cpp)

# No fused multiply-add: a compiler may form one even where contraction is off, and results would differ. What the
# compiler vectorizes by itself stays at 16 bytes: it does not always clear the upper halves of the registers behind it.
set(ZORI_WIDE_OPTIONS -march=x86-64-v3 -mtune=generic -mno-fma -mprefer-vector-width=128)

# The sources of a list, without those of subsystems that are left out.
function(zori_listed_sources result)
  set(sources "")
  foreach(file ${ARGN})
    set(source ${CMAKE_CURRENT_SOURCE_DIR}/${file})
    if(source IN_LIST zori_sources)
      list(APPEND sources ${source})
    elseif(NOT EXISTS ${source})
      message(FATAL_ERROR "src/wide.cmake names ${source}, which is not there")
    endif()
  endforeach()
  set(${result} ${sources} PARENT_SCOPE)
endfunction()
zori_listed_sources(sources_of_32_bytes ${ZORI_FILES_OF_32_BYTES})
zori_listed_sources(sources_of_the_base ${ZORI_FILES_OF_THE_BASE_LEVEL})
set(sources_of_16_bytes ${zori_sources})
list(REMOVE_ITEM sources_of_16_bytes ${sources_of_32_bytes} ${sources_of_the_base})
zori_listed_sources(sources_of_both ${ZORI_FILES_OF_BOTH})
list(APPEND sources_of_16_bytes ${sources_of_both})

zori_objects(zori_wide_16 ${sources_of_16_bytes})
zori_objects(zori_wide_32 ${sources_of_32_bytes})
set(wide_objects $<TARGET_OBJECTS:zori_wide_16> $<TARGET_OBJECTS:zori_wide_32>)
if(sources_of_the_base)
  zori_objects(zori_wide_base ${sources_of_the_base})
  list(APPEND wide_objects $<TARGET_OBJECTS:zori_wide_base>)
endif()
target_compile_options(zori_wide_16 PRIVATE ${ZORI_WIDE_OPTIONS})
target_compile_options(zori_wide_32 PRIVATE ${ZORI_WIDE_OPTIONS})
if(CMAKE_CXX_COMPILER_ID STREQUAL GNU AND CMAKE_CXX_COMPILER_VERSION VERSION_GREATER_EQUAL 12)
  target_compile_options(zori_wide_32 PRIVATE -mmove-max=256 -mstore-max=256) # of structs
endif()
target_compile_definitions(zori_wide_32 PRIVATE ZORI_VECTOR_BYTES=32)

add_library(zori_wide SHARED ${wide_objects} $<TARGET_OBJECTS:zori_variant>)
zori_shared_library(zori_wide)
set_target_properties(zori_wide PROPERTIES
  LIBRARY_OUTPUT_DIRECTORY ${CMAKE_CURRENT_BINARY_DIR}/glibc-hwcaps/x86-64-v3)
add_dependencies(zori zori_wide) # where one is, the other belongs
