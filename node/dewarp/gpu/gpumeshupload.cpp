#include "node/dewarp/gpu/gpumesh.h"
#include "node/dewarp/gpu/gpuopengl.h"
#include "utils/checked.h"

void GPUOpenGL::GenerateIndices(unsigned short* pIndices, int cellsX, int cellsY) {
    GenerateMeshIndices(pIndices, cellsX, cellsY);
}

void GPUOpenGL::AllocIndices(unsigned int* pBufferName, int triangles, unsigned short* pIndices) {
    const int bytes =
        Orba::CheckedMul(Orba::CheckedMul(triangles, 3), static_cast<int>(sizeof(unsigned short)));
    m_pfnglgenbuffers(1, pBufferName);
    m_pfnglbindbuffer(GL_ELEMENT_ARRAY_BUFFER, *pBufferName);
    CheckglError("glBindBuffer pIndices");
    m_pfnglbufferdata(GL_ELEMENT_ARRAY_BUFFER, bytes, pIndices, GL_STATIC_DRAW);
    CheckglError("glBufferData pIndices");
}

void GPUOpenGL::UpdateVertexAndTextureCoordinates(float* pVertices, float* pTexCoordinates,
                                                  const float* pGrid, int numVerticesX, int numVerticesY,
                                                  int inImageWidth, int inImageHeight, int outImageWidth,
                                                  int outImageHeight, int gridMode) {
    DEWARP_VERBOSE(
        "[DEWARP_%d] parameters: numVerticesX[%d] numVerticesY[%d] inImageWidth[%d] inImageHeight[%d] "
        "outImageWidth[%d] outImageHeight[%d]",
        m_stabilizationType, numVerticesX, numVerticesY, inImageWidth, inImageHeight, outImageWidth,
        outImageHeight);
    const DewarpMeshSizes sizes = {numVerticesX,  numVerticesY,  inImageWidth,
                                   inImageHeight, outImageWidth, outImageHeight};
    UpdateMesh(pVertices, pTexCoordinates, pGrid, sizes, gridMode == 1);
}

void GPUOpenGL::ConfigureVertexAndTextureCoordinates(float* pVertices, float* pTexCoordinates,
                                                     int positionLocation, int texCoordLocation) {
    const struct {
        GLuint location;
        const float* pArray;
        const char* label;
    } rows[] = {
        {static_cast<GLuint>(positionLocation), pVertices, "glVertexAttribPointer pVertices"},
        {static_cast<GLuint>(texCoordLocation), pTexCoordinates, "glVertexAttribPointer pTexCoordinates"},
    };
    for (const auto& row : rows) {
        m_pfnglenablevertexattribarray(row.location);
    }
    for (const auto& row : rows) {
        m_pfnglvertexattribpointer(row.location, 2, GL_FLOAT, GL_FALSE, 0, row.pArray);
        CheckglError(row.label);
    }
}

void GPUOpenGL::ConfigureIndices(unsigned int* pBufferName) {
    m_pfnglbindbuffer(GL_ELEMENT_ARRAY_BUFFER, *pBufferName);
    CheckglError("glBindBuffer");
}
