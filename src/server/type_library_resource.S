/* The type library as a section of the executable. The section is allocated, so that stripping keeps it, and retained,
   so that a linker that drops what nobody refers to keeps it as well. */
        .section .typelib, "aR", %progbits
        .incbin KESTOR_TYPE_LIBRARY
        .section .note.GNU-stack, "", %progbits
