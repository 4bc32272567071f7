# Units as some link-time optimisers leave them: one with nothing but the end of a list, one without
# a single entry.
        .macro unit entries:vararg
        .long 1f - 0f
0:
        .short 4
        .long .Labbreviations
        .byte 8
        \entries
1:
        .endm

        .section .debug_abbrev,"",@progbits
.Labbreviations:
        .byte 0
        .section .debug_info,"",@progbits
        unit .byte 0
        unit
        .section .note.GNU-stack,"",@progbits
