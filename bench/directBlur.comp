#version 450
// One direction of a Gaussian, each texel fetched anew for each of its neighbours.
layout(local_size_x = 32, local_size_y = 8) in;
layout(set = 0, binding = 0) uniform sampler2D picture;
layout(set = 0, binding = 1, rgba8) writeonly uniform image2D result;
layout(push_constant) uniform Kernel {
  ivec2 direction;
  int reach;
  float sigma;
};
void main() {
  const ivec2 at = ivec2(gl_GlobalInvocationID.xy);
  const ivec2 last = textureSize(picture, 0) - 1;
  if (any(greaterThan(at, last))) return;
  vec4 sum = vec4(0);
  float total = 0;
  for (int i = -reach; i <= reach; ++i) {
    const float weight = exp(-float(i * i) / (2 * sigma * sigma));
    sum += weight * texelFetch(picture, clamp(at + i * direction, ivec2(0), last), 0);
    total += weight;
  }
  imageStore(result, at, sum / total);
}
