#pragma once

namespace hv {

/// Longest path, in vertices, that the recursion of every rendering thread has stack for; at least 1. Asks the threads
/// of a parallel region.
int DeepestPath();

}  // namespace hv
