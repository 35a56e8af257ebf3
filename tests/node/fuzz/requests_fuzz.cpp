// Any sequence of what a host may do with two nodes: frames with grids of any bits or none, buffers that come
// and go and move, GL calls that raise their flag. Results follow from the sequence; in the end nothing is
// left.

#include <memory>

#include "desk/warp/grid_size.h"
#include "tests/node/fuzz/fuzz_host.h"

namespace {

void Render(FuzzInput& input, Stage& stage) {
    IPEICAGridTransform grid = {};
    grid.gridTransformEnable = input.Below(3);
    for (int i = 0; i < 8; ++i) {
        grid.gridTransformArray[input.Take<uint16_t>() % desk::GridPoints] = input.Take<GridPoint>();
    }
    const bool hasGrid = input.Below(8) != 0;
    const uint32_t result =
        stage.node->Process(input.Take<uint64_t>(), hasGrid ? &grid : nullptr, *stage.inputs[input.Below(3)],
                            *stage.outputs[input.Below(3)]);
    Require(result == (hasGrid ? 0U : 1U), "a frame has another result");
}

}  // namespace

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzHost& fuzz = FuzzHost::Get();
    FuzzInput input(data, size);
    {
        std::unique_ptr<Stage> stages[2];
        // Every flag but those that the generation of names looks at is logged and nothing more.
        const char* harmless[] = {"glDrawElements", "glClear", "glViewport", "glBindBuffer", "glScissor"};
        while (!input.IsEmpty()) {
            const uint32_t which = input.Below(2);
            std::unique_ptr<Stage>& stage = stages[which];
            if (!stage) {
                stage = std::make_unique<Stage>(fuzz.host, Variants[which], 3, desk::Size{16, 16});
            }
            const uint32_t action = input.Below(6);
            if (action == 0) {
                stage.reset();
            } else if (action <= 2) {
                (action == 1 ? stage->inputs : stage->outputs)[input.Below(3)]->Remap();
            } else if (action == 3) {
                fuzz.gl.fault = [name = harmless[input.Below(5)],
                                 error = 0x500 + input.Below(6)](auto& call) {
                    return GlFault{call.name == name ? error : 0, false};
                };
            } else {
                Render(input, *stage);
            }
        }
    }
    fuzz.gl.fault = nullptr;
    fuzz.RequireClean();
    return 0;
}
