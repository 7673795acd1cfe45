/* The type library inside the executable, between the mark and the NUL by which the runtime finds it in the file. The
   section is allocated, so that stripping keeps it, and retained, so that a linker that drops what nothing refers to
   keeps it as well. */
        .section .typelib, "aR", %progbits
        .ascii "@(#) type library\n"
        .incbin KESTOR_TYPE_LIBRARY
        .byte 0
        .section .note.GNU-stack, "", %progbits
