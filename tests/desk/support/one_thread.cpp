#include <opencv2/core.hpp>

// The picture library is not built with ThreadSanitizer, which misses how its threads wait for one another.
static const bool isOnOneThread = (cv::setNumThreads(1), true);
