#pragma once

#include <fmt/format.h>

#include <map>
#include <set>
#include <string>
#include <vector>

#include "node/dewarp/gpu/gpuapi.h"
#include "tests/node/fakegl/fake_gl_fixture.h"

using Counts = std::map<std::string, unsigned>;

struct Point {
    std::string failing;  ///< the class of calls; empty for none
    unsigned first = 0;   ///< the first of them that fails, from 1
    bool isLasting = false;

    /// Where lines go varies from point to point: to the host alone, to both sinks; of lasting faults also
    /// nowhere.
    bool IsLogged() const {
        return !isLasting || first % 3 != 1;
    }
    bool HasSystemLog() const {
        return isLasting ? first % 3 == 2 : first % 2 == 1;
    }
    /// What the driver says of a shader or program that fails: something or nothing.
    const char* InfoLog() const {
        return isLasting ? "" : "broken";
    }
};

inline std::string Name(const Point& point) {
    return fmt::format("{} number {}{}", point.failing, point.first, point.isLasting ? " and later" : "");
}

/// The classes that a GL call belongs to.
inline std::vector<std::string> ClassesOf(const GlCall& call) {
    const std::string api = call.name.rfind("egl", 0) == 0 ? "EGL" : "GL";
    if (call.name == "glGetError" || call.name == "eglGetError") {
        return {api + " flag set when read"};
    }
    std::vector<std::string> classes = {api + " call raising its flag"};
    static const std::set<std::string> refusable = {"glCheckFramebufferStatus", "glCreateProgram",
                                                    "glCreateShader", "glGetProgramiv", "glGetShaderiv"};
    const bool isOfLog = call.words.size() == 3 && call.words[1] == GL_INFO_LOG_LENGTH;
    if (api == "EGL" || call.name.rfind("glGen", 0) == 0 || (refusable.count(call.name) != 0 && !isOfLog)) {
        classes.push_back(api + " call refused");
        classes.push_back(api + " call refused in silence");
    }
    return classes;
}
