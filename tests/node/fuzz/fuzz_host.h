#pragma once

#include <filesystem>

#include "tests/node/fakegl/fake_gl_fixture.h"
#include "tests/support/fuzz.h"

/// A host over the fake GL with the built library, made once for all inputs.
struct FuzzHost {
    FakeGl gl;
    desk::DeskHost host{OptionsFor(std::filesystem::temp_directory_path())};

    static FuzzHost& Get() {
        static FuzzHost one;
        return one;
    }
    /// Nothing that a node broke or left.
    void RequireClean() {
        host.CheckTornDown();
        for (const std::string& finding : host.contract.List()) {
            Require(false, finding.c_str());
        }
        Require(gl.liveImages + gl.liveNames + gl.liveObjects == 0, "GL objects stay behind");
        gl.Take();
    }

private:
    FuzzHost() {
        host.libraries.SetProvider(&gl);
        host.SetLogLevels(1 | 2 | 8 | 32, false);
    }
};
