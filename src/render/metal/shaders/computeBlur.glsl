// Weighs the texels on both sides of each along a direction; beyond the border the last ones go on. Buffer 0: the
// direction; texture 0: the picture, 1: the result, 2: the weights by distance.
layout(local_size_x_id = 0, local_size_y_id = 1) in;
layout(set = 0, binding = 0) uniform Direction { ivec2 direction; };
layout(set = 0, binding = 1) uniform sampler2D picture;
layout(set = 0, binding = 3) uniform sampler2D weights;
layout(set = 0, binding = 5, rgba8) writeonly uniform image2D result;

// The largest radius has 30 weights.
const int kMostWeights = 30;

// What a workgroup reads, row by row: its own texels and those that its outermost ones reach.
shared uint tile[32 * 8 + 2 * (kMostWeights - 1) * 32];
shared float weight[kMostWeights];

void main() {
  const int reach = min(textureSize(weights, 0).x, kMostWeights) - 1;
  const ivec2 group = ivec2(gl_WorkGroupSize.xy);
  const ivec2 extent = group + 2 * reach * direction;
  const ivec2 origin = ivec2(gl_WorkGroupID.xy) * group - reach * direction;
  const ivec2 last = textureSize(picture, 0) - 1;
  const int self = int(gl_LocalInvocationIndex);
  const int threads = group.x * group.y;
  for (int i = self; i < extent.x * extent.y; i += threads) {
    const ivec2 at = origin + ivec2(i % extent.x, i / extent.x);
    tile[i] = packUnorm4x8(texelFetch(picture, clamp(at, ivec2(0), last), 0));
  }
  for (int i = self; i <= reach; i += threads) weight[i] = texelFetch(weights, ivec2(i, 0), 0).r;
  barrier();

  const ivec2 local = ivec2(gl_LocalInvocationID.xy) + reach * direction;
  const int centre = local.y * extent.x + local.x;
  const int stride = direction.x + direction.y * extent.x;
  vec3 sum = weight[0] * unpackUnorm4x8(tile[centre]).rgb;
  for (int i = 1; i <= reach; ++i) {
    sum += weight[i] * (unpackUnorm4x8(tile[centre - i * stride]).rgb + unpackUnorm4x8(tile[centre + i * stride]).rgb);
  }
  const ivec2 at = ivec2(gl_GlobalInvocationID.xy);
  if (all(lessThanEqual(at, last))) imageStore(result, at, vec4(sum, 1));
}
