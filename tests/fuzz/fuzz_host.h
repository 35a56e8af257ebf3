#pragma once

#include <filesystem>

#include "desk/host/desk_host.h"
#include "desk/host/desk_node.h"
#include "tests/fakegl/fake_gl.h"
#include "tests/fuzz/fuzz.h"

/// A host over the fake GL with the built library, made once for all inputs.
struct FuzzHost {
    FakeGl gl;
    desk::DeskHost host{Options()};

    static FuzzHost& Get() {
        static FuzzHost one;
        return one;
    }
    /// Nothing that a node broke or left.
    void RequireClean() {
        host.CheckTornDown();
        for (const std::string& finding : host.Findings().List()) {
            Require(false, finding.c_str());
        }
        Require(gl.liveImages + gl.liveNames + gl.liveObjects == 0, "GL objects stay behind");
        gl.Take();
    }

private:
    FuzzHost() {
        host.SetLibraries(&gl);
    }
    static desk::HostOptions Options() {
        desk::HostOptions options;
        options.nodeLibrary = TEST_NODE_LIBRARY;
        options.dumpDir = std::filesystem::temp_directory_path();
        options.log = nullptr;
        options.luxBits = 1 | 2 | 8 | 32;
        return options;
    }
};
