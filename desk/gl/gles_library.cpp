// libGLESv2.so has no code of its own. The state of a context is shared by EGL and GL functions, so both
// kinds live in libEGL.so, which this library links; a look-up by name finds the layer's functions there,
// and all others in the machine's own library, which it links after it.
