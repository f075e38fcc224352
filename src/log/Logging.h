#pragma once

namespace QelUtilVideo {

/// Marks this module: its bundle is the one that defines this class.
struct Logging final {};

}  // namespace QelUtilVideo
