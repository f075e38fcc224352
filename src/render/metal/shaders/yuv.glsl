// Video-range BT.601 to RGB, for every shader that converts. `yuv`: as the textures give them.
vec3 rgbOfYuv(vec3 yuv) {
  yuv.x = 1.1643 * (yuv.x - 0.0625);
  yuv.yz -= vec2(0.5, 0.5);
  return mat3(1, 1, 1,
              0, -0.39173, 2.017,
              1.5958, -0.81290, 0) * yuv;
}
