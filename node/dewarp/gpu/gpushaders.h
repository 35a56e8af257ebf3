#pragma once

/// The warp program. The vertex shader passes clip-space position and texture coordinate through; the
/// fragment shader samples the input as an external YUV image and writes YUV straight into the output, so
/// no colour is converted on either side.
///
/// Every text begins with a line of blanks, and its lines are padded with blanks to one width; the blanks
/// carry no meaning.

constexpr const char* DewarpVertexShader =
    "                                                        \n"
    "#version 300 es                                         \n"
    "in vec2 inPosition;                                     \n"
    "in vec2 inTexCoord;                                     \n"
    "out vec2 texCoord;                                      \n"
    "void main()                                             \n"
    "{                                                       \n"
    "texCoord =  inTexCoord;                                 \n"
    "gl_Position = vec4(inPosition,0.0,1.0);                 \n"
    "}                                                       \n";

constexpr const char* DewarpFragmentShader =
    "                                                        \n"
    "#version 300 es                                         \n"
    "#extension GL_EXT_YUV_target : require                  \n"
    "precision highp float;                                  \n"
    "uniform highp  __samplerExternal2DY2YEXT tex;           \n"
    "in vec2 texCoord;                                       \n"
    "layout (yuv) out vec4 FragColor;                        \n"
    "void main()                                             \n"
    "{                                                       \n"
    "FragColor = texture(tex, texCoord);                     \n"
    "}                                                       \n";
