#include "bench/floor.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "bench/null_host.h"
#include "desk/warp/grid_size.h"
#include "host/lumnodeutils.h"
#include "node/dewarp/gpu/gpuapi.h"
#include "node/dewarp/gpu/gpuentrypoints.h"

namespace bench {
namespace {

using namespace desk;

struct NullGl {
#define FLOOR_ENTRY(member, symbol, ...) \
    decltype(&::symbol) member = reinterpret_cast<decltype(&::symbol)>(NullGlSymbol(#symbol));
    DEWARP_GLES_ENTRIES(FLOOR_ENTRY)
    DEWARP_EGL_ENTRIES(FLOOR_ENTRY)
#undef FLOOR_ENTRY

    void Probe() const {
        if (m_pfnglgeterror() != GL_NO_ERROR) {
            std::abort();
        }
    }
    void ProbeEgl() const {
        if (m_pfneglgeterror() != EGL_SUCCESS) {
            std::abort();
        }
    }
};

void FillMesh(const float* grid, int width, int height, float* vertices, float* texCoordinates) {
    const float w = static_cast<float>(width);
    const float h = static_cast<float>(height);
    const float scaleX = w / static_cast<float>(width);  // input and output are of one size
    const float scaleY = h / static_cast<float>(height);
    const float halfX = static_cast<float>(-0.5 / width);
    const float halfY = static_cast<float>(-0.5 / height);
    const float centreX = (w - 1.0F) / 2.0F;
    const float centreY = (h - 1.0F) / 2.0F;
    float positionX[MeshColumns];
    for (int c = 0; c < MeshColumns; ++c) {
        positionX[c] = scaleX * (-1.0F + 2.0F * (halfX + static_cast<float>(c) / (MeshColumns - 1)));
    }
    for (int r = 0; r < MeshRows; ++r) {
        float* position = vertices + 2 * r * MeshColumns;
        float* texCoordinate = texCoordinates + 2 * r * MeshColumns;
        const float* point = grid + 2 * ((r + 1) * GridColumns + 1);
        const float positionY = scaleY * (-1.0F + 2.0F * (halfY + static_cast<float>(r) / (MeshRows - 1)));
        for (int c = 0; c < MeshColumns; ++c) {
            position[2 * c] = positionX[c];
            position[2 * c + 1] = positionY;
        }
        for (int c = 0; c < MeshColumns; ++c) {
            texCoordinate[2 * c] = 0.0F + (point[2 * c] + centreX) / w;
            texCoordinate[2 * c + 1] = 0.0F + (point[2 * c + 1] + centreY) / h;
        }
    }
}

void Begin(const NullGl& gl, int width, int height) {
    gl.m_pfneglmakecurrent(nullptr, nullptr, nullptr, nullptr);
    gl.ProbeEgl();
    gl.m_pfngluseprogram(1);
    gl.Probe();
    const GLint location = gl.m_pfnglgetuniformlocation(1, "tex");
    gl.m_pfnglactivetexture(GL_TEXTURE0);
    gl.m_pfngluniform1i(location, 0);
    gl.m_pfnglviewport(0, 0, width, height);
}

void Draw(const NullGl& gl, int width, int height, const float* vertices, const float* texCoordinates) {
    gl.m_pfnglenablevertexattribarray(0);
    gl.m_pfnglenablevertexattribarray(1);
    gl.m_pfnglvertexattribpointer(0, 2, GL_FLOAT, GL_FALSE, 0, vertices);
    gl.Probe();
    gl.m_pfnglvertexattribpointer(1, 2, GL_FLOAT, GL_FALSE, 0, texCoordinates);
    gl.Probe();
    gl.m_pfnglbindbuffer(GL_ELEMENT_ARRAY_BUFFER, 1);
    gl.Probe();
    gl.m_pfnglbindtexture(GL_TEXTURE_EXTERNAL_OES, 1);
    gl.Probe();
    gl.m_pfnglbindframebuffer(GL_DRAW_FRAMEBUFFER, 1);
    gl.Probe();
    gl.m_pfnglscissor(0, 0, width, height);
    gl.Probe();
    if (gl.m_pfnglcheckframebufferstatus(GL_DRAW_FRAMEBUFFER) != GL_FRAMEBUFFER_COMPLETE) {
        std::abort();
    }
    gl.m_pfnglClearColor(0.0F, 0.0F, 0.0F, 0.0F);
    gl.Probe();
    gl.m_pfnglClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
    gl.Probe();
    gl.m_pfngldrawelements(GL_TRIANGLES, (MeshColumns - 1) * (MeshRows - 1) * 6, GL_UNSIGNED_SHORT, nullptr);
    gl.Probe();
    gl.m_pfnglflush();
    gl.m_pfnglfinish();
    gl.m_pfnglbindtexture(GL_TEXTURE_EXTERNAL_OES, 0);
    gl.Probe();
    gl.m_pfnglbindframebuffer(GL_DRAW_FRAMEBUFFER, 0);
    gl.Probe();
    gl.m_pfneglmakecurrent(nullptr, nullptr, nullptr, nullptr);
    gl.ProbeEgl();
}

}  // namespace

const float* FloorFrame(const IPEICAGridTransform& grid, int width, int height) {
    static const NullGl gl;
    static float mesh[2 * MeshFloats];
    float copy[GridPoints * 2];
    std::memcpy(copy, grid.gridTransformArray, sizeof(copy));
    Begin(gl, width, height);
    FillMesh(copy, width, height, mesh, mesh + MeshFloats);
    Draw(gl, width, height, mesh, mesh + MeshFloats);
    return mesh;
}

void DumpCallsFrame(const IPEICAGridTransform& grid, const float* mesh) {
    static FILE* const file = std::fopen("/dev/null", "a");
    static char line[98304];
    constexpr size_t Limit = 65536;
    const auto wide = [](float value) { return static_cast<double>(value); };
    const auto write = [](const char* end) {
        LumNodeUtils::FWrite(line, static_cast<size_t>(end - line), 1, file);
    };
    char* end = line + LumNodeUtils::SNPrintF(line, Limit, "Frame %lu, %u, %u, ", 1UL, 0U, 0U);
    const GridPoint* point = grid.gridTransformArray;
    for (; point < grid.gridTransformArray + GridPoints - 1; ++point) {
        end += LumNodeUtils::SNPrintF(end, Limit, "%4.4lf, %4.4lf, ", wide(point->x), wide(point->y));
    }
    end += LumNodeUtils::SNPrintF(end, Limit, "%4.4lf, %4.4lf \n", wide(point->x), wide(point->y));
    write(end);
    for (int array = 1; array >= 0; --array) {
        const float* data = mesh + (array == 0 ? 0 : MeshFloats);
        const float* const last = data + MeshVertices - 1;
        end = line + LumNodeUtils::SNPrintF(line, Limit, "Frame %lu", 1UL);
        for (; data < last; ++data) {
            end += LumNodeUtils::SNPrintF(end, Limit, ", %4.4lf, %4.4lf", wide(data[0]), wide(data[1]));
        }
        end += LumNodeUtils::SNPrintF(end, Limit, ", %4.4lf, %4.4lf \n", wide(data[0]), wide(data[1]));
        write(end);
    }
}

}  // namespace bench
