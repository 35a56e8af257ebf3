#include "node/dewarp/gpu/gpudumps.h"

#include "node/dewarp/dewarpdump.h"
#include "node/dewarp/dewarplog.h"
#include "utils/checked.h"

void WriteVerticesAndTexCoordinatesToFile(FILE* file, float* data, unsigned int count, unsigned long frame) {
    const unsigned int last = Orba::CheckedSub(count, 1U);
    DewarpDumpLine line;
    line.Append("Frame %lu", frame);
    for (unsigned int i = 0; i < last; ++i) {
        line.Append(", %4.4lf, %4.4lf", static_cast<double>(data[i]), static_cast<double>(data[i + 1]));
    }
    line.Append(", %4.4lf, %4.4lf \n", static_cast<double>(data[last]), static_cast<double>(data[last + 1]));
    if (line.Write(file)) {
        DEWARP_VERBOSE("%zd byte successfully written to file", line.Length());
    } else {
        DEWARP_ERROR("File write failed !");
    }
}
