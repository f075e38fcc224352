#extension GL_GOOGLE_include_directive : require

#include "yuv.glsl"

// Converts a frame as the fragment stage does that draws it sharp. Texture 0: luma, 1: chroma, 2: the result.
layout(local_size_x_id = 0, local_size_y_id = 1) in;
layout(set = 0, binding = 1) uniform sampler2D luma;
layout(set = 0, binding = 2) uniform sampler2D chroma;
layout(set = 0, binding = 6, rgba8) writeonly uniform image2D result;

void main() {
  const ivec2 at = ivec2(gl_GlobalInvocationID.xy);
  const ivec2 size = imageSize(result);
  if (any(greaterThanEqual(at, size))) return;
  const vec2 texcoord = (vec2(at) + 0.5) / vec2(size);
  const vec3 yuv = vec3(texelFetch(luma, at, 0).r, textureLod(chroma, texcoord, 0).rg);
  imageStore(result, at, vec4(rgbOfYuv(yuv), 1));
}
