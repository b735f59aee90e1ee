// Benchmarks of alpha compositing; the peer of the premultiplied operators is libpixman-1 where it is installed.
#include "harness.h"
#include "zori/arith.h"

#ifdef ZORI_BENCH_PIXMAN
#include <pixman.h>
#endif

using bench::Image;
using bench::Run;

static Run compose(ZorImgSize size, ZorAlphaOp op, [[maybe_unused]] int pixmanOp)
{
  const Image<Zor8u> a(size, 4), b(size, 4), dst(size, 4);
  zoriAlphaPremul_8u_AC4IR(a, a.step, size);
  zoriAlphaPremul_8u_AC4IR(b, b.step, size);
  Run run{a.bytes() + b.bytes(), dst.bytes(),
          [=] { return zoriAlphaComp_8u_AC4R(a, a.step, b, b.step, dst, dst.step, size, op); }};
#ifdef ZORI_BENCH_PIXMAN
  // The peer composes in place over the second image.
  const auto image = [=](const Image<Zor8u>& x) {
    return std::shared_ptr<pixman_image_t>(pixman_image_create_bits(PIXMAN_a8r8g8b8, size.width, size.height,
                                                                    static_cast<uint32_t*>(static_cast<void*>(x.data)),
                                                                    x.step),
                                           pixman_image_unref);
  };
  const auto over = image(a), under = image(b);
  run.peerName = "pixman";
  run.peer = [=] {
    pixman_image_composite32(static_cast<pixman_op_t>(pixmanOp), over.get(), nullptr, under.get(), 0, 0, 0, 0, 0, 0,
                             size.width, size.height);
  };
#endif
  return run;
}

static const bench::Group alpha("alpha", [](bench::Group& g) {
  g.both("Over premultiplied 8u AC4", [](ZorImgSize size) { return compose(size, ZorAlphaOverPremul, 3); });
  g.both("In premultiplied 8u AC4", [](ZorImgSize size) { return compose(size, ZorAlphaInPremul, 5); });
  g.both("Over straight 8u AC4", [](ZorImgSize size) { return compose(size, ZorAlphaOver, 3); });
  g.both("Premul 8u AC4", [](ZorImgSize size) {
    const Image<Zor8u> src(size, 4), dst(size, 4);
    return Run{src.bytes(), dst.bytes(), [=] { return zoriAlphaPremul_8u_AC4R(src, src.step, dst, dst.step, size); }};
  });
  g.both("CompColorKey 8u C3", [](ZorImgSize size) {
    const Image<Zor8u> a(size, 3), b(size, 3), dst(size, 3);
    static const Zor8u key[3] = {1, 2, 3};
    return Run{a.bytes() + b.bytes(), dst.bytes(),
               [=] { return zoriCompColorKey_8u_C3R(a, a.step, b, b.step, dst, dst.step, size, key); }};
  });
});
