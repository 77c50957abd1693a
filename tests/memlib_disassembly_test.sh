#!/usr/bin/env bash
# The memory primitives must never call themselves or one another through
# the PLT or the GOT. g++ may turn a byte loop into a call of memcpy, memset
# or strlen; inside the library's own memcpy such a call would come straight
# back (the exported name resolves to the library), and inside the others it
# would hand the work to whatever the process binds the C name to. Checks the
# disassembly of every function of the memory primitives in the built shared
# object: no call or jump to an imported function other than getenv and
# raise, whether through a PLT entry or (the library is built with -fno-plt)
# through a GOT slot, and no call of a function's own entry.
set -euo pipefail
lib=$1

c_names='memcpy|memmove|memset|strlen|strnlen|wcslen|wcsnlen|strcpy|strcat|wcscpy|wcscat'
internal="($c_names|strncpy)_impl|__[a-z]+_chk|cpuInstructionSet|cpuLevelFromFeatures|dispatchInstructionSet|memlibDispatch"
pattern="^($c_names|uvt_memlib_[a-z]+|_ZN3uvt4impl6memlib.*|_ZN3uvt4impl[0-9]+($internal)E.*)\$"
allowed='^(getenv|raise)(@.*)?$'

# GOT slot address -> the symbol the dynamic linker stores there.
slots=$(objdump -R "$lib" | awk '$2 ~ /^R_X86_64_(GLOB_DAT|JUMP_SLOT)$/ { print $1, $3 }')

objdump -d --no-show-raw-insn "$lib" | awk -v pattern="$pattern" -v allowed="$allowed" -v slots="$slots" '
    BEGIN {
        n = split(slots, words, /[ \n]+/)
        for (i = 1; i + 1 <= n; i += 2) {
            address = words[i]
            sub(/^0+/, "", address)
            slot[address] = words[i + 1]
        }
    }
    /^[0-9a-f]+ <[^>]+>:$/ {
        name = substr($2, 2, length($2) - 3)
        inside = name ~ pattern
        functions += inside
        next
    }
    inside && $2 ~ /^(call|jmp)/ {
        target = $NF
        if (target ~ /@plt>$/) {
            callee = substr(target, 2, length(target) - 6)
            if (callee !~ allowed) { print name " calls through the PLT: " $0; bad++ }
        }
        if ($0 ~ /\*(0x[0-9a-f]+)?\(%rip\)/ && match($0, /# [0-9a-f]+ </)) {
            address = substr($0, RSTART + 2, RLENGTH - 4)
            sub(/^0+/, "", address)
            if (address in slot && slot[address] !~ allowed) {
                print name " calls " slot[address] " through the GOT: " $0
                bad++
            }
        }
        if (target == "<" name ">") { print name " calls itself: " $0; bad++ }
    }
    END {
        if (functions < 100) { print "only " functions " functions of the memory primitives found"; exit 1 }
        if (bad) exit 1
        print functions " functions of the memory primitives checked"
    }'
