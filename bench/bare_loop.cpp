#include <EGL/egl.h>
#include <EGL/eglext.h>
#include <GLES3/gl3.h>

#include <memory>
#include <stdexcept>
#include <vector>

#include "bench/peers.h"
#include "node/dewarp/gpu/gpumesh.h"

namespace bench {
namespace {

constexpr int Indices = (MeshColumns - 1) * (MeshRows - 1) * 6;

constexpr const char* VertexShader =
    "#version 300 es\n"
    "layout(location = 0) in vec2 position;\n"
    "layout(location = 1) in vec2 texCoord;\n"
    "out vec2 at;\n"
    "void main() { at = texCoord; gl_Position = vec4(position, 0.0, 1.0); }\n";
constexpr const char* FragmentShader =
    "#version 300 es\n"
    "precision highp float;\n"
    "uniform sampler2D plane;\n"
    "in vec2 at;\n"
    "out vec4 colour;\n"
    "void main() { colour = texture(plane, at); }\n";

GLuint MakeShader(GLenum type, const char* text) {
    const GLuint shader = glCreateShader(type);
    glShaderSource(shader, 1, &text, nullptr);
    glCompileShader(shader);
    return shader;
}

/// One plane of the picture: where it is sampled from and drawn to.
struct Plane {
    Plane(cv::Size s, GLenum internalFormat, GLenum f) : size(s), format(f) {
        for (GLuint* texture : {&source, &target}) {
            glGenTextures(1, texture);
            glBindTexture(GL_TEXTURE_2D, *texture);
            glTexStorage2D(GL_TEXTURE_2D, 1, internalFormat, size.width, size.height);
            for (const GLenum filter : {GLenum{GL_TEXTURE_MIN_FILTER}, GLenum{GL_TEXTURE_MAG_FILTER}}) {
                glTexParameteri(GL_TEXTURE_2D, filter, GL_LINEAR);
            }
            for (const GLenum wrap : {GLenum{GL_TEXTURE_WRAP_S}, GLenum{GL_TEXTURE_WRAP_T}}) {
                glTexParameteri(GL_TEXTURE_2D, wrap, GL_CLAMP_TO_EDGE);
            }
        }
        glGenFramebuffers(1, &framebuffer);
        glBindFramebuffer(GL_FRAMEBUFFER, framebuffer);
        glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, target, 0);
    }
    void Upload(const uint8_t* pixels) const {
        glBindTexture(GL_TEXTURE_2D, source);
        glTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, size.width, size.height, format, GL_UNSIGNED_BYTE, pixels);
    }
    void Draw() const {
        glBindTexture(GL_TEXTURE_2D, source);
        glBindFramebuffer(GL_FRAMEBUFFER, framebuffer);
        glViewport(0, 0, size.width, size.height);
        glClear(GL_COLOR_BUFFER_BIT);
        glDrawElements(GL_TRIANGLES, Indices, GL_UNSIGNED_SHORT, nullptr);
    }
    void Read(uint8_t* pixels) const {
        glBindFramebuffer(GL_FRAMEBUFFER, framebuffer);
        glReadPixels(0, 0, size.width, size.height, format, GL_UNSIGNED_BYTE, pixels);
    }

    cv::Size size;
    GLenum format;
    GLuint source = 0;
    GLuint target = 0;
    GLuint framebuffer = 0;
};

/// A context without a surface, which is current.
EGLContext MakeContext(EGLDisplay display) {
    const EGLint wanted[] = {EGL_SURFACE_TYPE, EGL_PBUFFER_BIT, EGL_RENDERABLE_TYPE, EGL_OPENGL_ES3_BIT,
                             EGL_NONE};
    const EGLint version[] = {EGL_CONTEXT_CLIENT_VERSION, 3, EGL_NONE};
    EGLConfig config = nullptr;
    EGLint configs = 0;
    eglInitialize(display, nullptr, nullptr);
    eglBindAPI(EGL_OPENGL_ES_API);
    eglChooseConfig(display, wanted, &config, 1, &configs);
    EGLContext context = eglCreateContext(display, config, EGL_NO_CONTEXT, version);
    if (context == EGL_NO_CONTEXT) {
        throw std::runtime_error("expected the machine's GL to give a context of version 3, got none");
    }
    eglMakeCurrent(display, EGL_NO_SURFACE, EGL_NO_SURFACE, context);
    return context;
}

struct Loop {
    explicit Loop(cv::Size size)
        : sizes{MeshColumns, MeshRows, size.width, size.height, size.width, size.height},
          planes{{size, GL_R8, GL_RED}, {size / 2, GL_RG8, GL_RG}} {
        const GLuint program = glCreateProgram();
        glAttachShader(program, MakeShader(GL_VERTEX_SHADER, VertexShader));
        glAttachShader(program, MakeShader(GL_FRAGMENT_SHADER, FragmentShader));
        glLinkProgram(program);
        glUseProgram(program);
        std::vector<unsigned short> indices(Indices);
        GenerateMeshIndices(indices.data(), MeshColumns - 1, MeshRows - 1);
        GLuint buffer = 0;
        glGenBuffers(1, &buffer);
        glBindBuffer(GL_ELEMENT_ARRAY_BUFFER, buffer);
        glBufferData(GL_ELEMENT_ARRAY_BUFFER, Indices * 2, indices.data(), GL_STATIC_DRAW);
        glEnableVertexAttribArray(0);
        glEnableVertexAttribArray(1);
        glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
        glPixelStorei(GL_PACK_ALIGNMENT, 1);
        eglMakeCurrent(display, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
    }
    ~Loop() {
        eglDestroyContext(display, context);
    }
    Loop(const Loop&) = delete;
    Loop& operator=(const Loop&) = delete;

    void Frame(const Nv12& input, const IPEICAGridTransform& grid, Nv12& output) {
        if (eglMakeCurrent(display, EGL_NO_SURFACE, EGL_NO_SURFACE, context) != EGL_TRUE) {
            throw std::runtime_error("expected the machine's GL to make its context current, got a refusal");
        }
        UpdateMesh(vertices.data(), texCoordinates.data(), &grid.gridTransformArray[0].x, sizes, true);
        glVertexAttribPointer(0, 2, GL_FLOAT, GL_FALSE, 0, vertices.data());
        glVertexAttribPointer(1, 2, GL_FLOAT, GL_FALSE, 0, texCoordinates.data());
        planes[0].Upload(input.luma.data);
        planes[1].Upload(input.chroma.data);
        for (const Plane& plane : planes) {
            plane.Draw();
        }
        planes[0].Read(output.luma.data);
        planes[1].Read(output.chroma.data);
        glFinish();
        eglMakeCurrent(display, EGL_NO_SURFACE, EGL_NO_SURFACE, EGL_NO_CONTEXT);
    }

    EGLDisplay display = eglGetPlatformDisplay(EGL_PLATFORM_SURFACELESS_MESA, EGL_DEFAULT_DISPLAY, nullptr);
    EGLContext context = MakeContext(display);
    DewarpMeshSizes sizes;
    Plane planes[2];
    std::vector<float> vertices = std::vector<float>(MeshColumns * MeshRows * 2);
    std::vector<float> texCoordinates = vertices;
};

}  // namespace

Peer BareLoop(cv::Size size, const desk::CameraPose& pose) {
    return [loop = std::make_shared<Loop>(size), grid = MakeGrid(pose, size)](
               const Nv12& input, Nv12& output) { loop->Frame(input, grid, output); };
}

}  // namespace bench
