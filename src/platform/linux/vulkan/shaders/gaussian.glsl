// One direction of a Gaussian. The one who includes this says how texels are kept in a tile (Texel, pack, unpack) and
// what the result's format is.
layout(local_size_x_id = 0, local_size_y_id = 1) in;

const int kMostReach = 60;

layout(set = 0, binding = 0) uniform Kernel {
  ivec2 direction;
  int reach;                             // at most kMostReach
  int clampsToEdge;                      // else what lies around the picture is transparent black
  vec4 weights[(kMostReach + 1 + 3) / 4];  // by distance
};
layout(set = 0, binding = 1) uniform sampler2D picture;
layout(set = 0, binding = 5, FORMAT) writeonly uniform image2D result;

shared Texel tile[gl_WorkGroupSize.x * gl_WorkGroupSize.y + 2 * kMostReach * SHORT_SIDE];
shared float weight[kMostReach + 1];

void main() {
  const ivec2 group = ivec2(gl_WorkGroupSize.xy);
  const ivec2 extent = group + 2 * reach * direction;
  const ivec2 origin = ivec2(gl_WorkGroupID.xy) * group - reach * direction;
  const ivec2 last = textureSize(picture, 0) - 1;
  const int self = int(gl_LocalInvocationIndex);
  const int threads = group.x * group.y;
  for (int i = self; i < extent.x * extent.y; i += threads) {
    const ivec2 at = origin + ivec2(i % extent.x, i / extent.x);
    const ivec2 inside = clamp(at, ivec2(0), last);
    const vec4 texel = texelFetch(picture, inside, 0);
    tile[i] = pack(clampsToEdge != 0 || at == inside ? texel : vec4(0));
  }
  for (int i = self; i <= reach; i += threads) weight[i] = weights[i / 4][i % 4];
  barrier();

  const ivec2 local = ivec2(gl_LocalInvocationID.xy) + reach * direction;
  const int centre = local.y * extent.x + local.x;
  const int stride = direction.x + direction.y * extent.x;
  vec4 sum = weight[0] * unpack(tile[centre]);
  for (int i = 1; i <= reach; ++i) {
    sum += weight[i] * (unpack(tile[centre - i * stride]) + unpack(tile[centre + i * stride]));
  }
  const ivec2 at = ivec2(gl_GlobalInvocationID.xy);
  if (all(lessThanEqual(at, last))) imageStore(result, at, sum);
}
