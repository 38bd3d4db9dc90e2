# SPDX-License-Identifier: GPL-2.0-only
# What a kernel's own build needs to know to compile our modules. build-modules writes a Kbuild with
# the file lists and these variables, and includes this file:
#   root     the source tree          stage    the folder that holds that Kbuild, absolute
#   obj-m, <module>-y                 objects, first kapi_begin.o and last kapi_end.o

kapi := $(root)/infra/kspace/kapi/linux

ifndef CXX
CXX := $(subst gcc,g++,$(CC))
endif

ccflags-y += -I$(stage) -I$(root)/include -I$(root)/infra/kspace -g0 -Werror
ccflags-y += -fmacro-prefix-map=$(stage)/=

# ---------------------------------------------------------------------------------------------
# Headers made from the target kernel's own: features, offsets and sizes.

filechk_kapi_features = sh $(kapi)/probe-features.sh $(kapi)/features $(srctree)
$(obj)/kapi_features.h: $(kapi)/features $(kapi)/probe-features.sh FORCE
	$(call filechk,kapi_features)

$(obj)/kapi_layout.s $(obj)/kapi_bits.o: $(obj)/kapi_features.h

filechk_kapi_target = OBJCOPY=$(OBJCOPY) sh $(kapi)/make-target-header.sh \
			$(obj)/kapi_layout.s $(obj)/kapi_bits.o
$(obj)/kapi_target.h: $(obj)/kapi_layout.s $(obj)/kapi_bits.o $(kapi)/make-target-header.sh FORCE
	$(call filechk,kapi_target)

targets += kapi_layout.s kapi_bits.o

kapi-objects := $(foreach m,$(obj-m:.o=),$(addprefix $(obj)/,$($(m)-y)))
$(kapi-objects): $(obj)/kapi_features.h $(obj)/kapi_target.h

# ---------------------------------------------------------------------------------------------
# C++: the flags that C gets here, less what the C++ compiler refuses as C only. No kernel header is
# within reach. Section groups are dissolved before objtool looks: its tables and ftrace's must not
# refer to sections that the linker drops as another object's duplicates.

cxx-c-only := -std=% -g% -w -Werror-implicit-function-declaration $(shell LC_ALL=C $(CXX) $(filter-out -w,$(KBUILD_CFLAGS)) $(KBUILD_CFLAGS_MODULE) \
	-x c++ -fsyntax-only /dev/null 2>&1 | \
	sed -n -e "s/.*option .\(-[A-Za-z0-9+=_-]*\). is valid for .* but not for C++.*/\1/p" \
	-e "s/.*argument .\(-[A-Za-z0-9+=_-]*\). is not valid for C++.*/\1/p")
cxx-include-common = -I$(stage) -I$(root)/include -I$(root)/infra/kspace
cxx_flags = -Wp,-MMD,$(depfile) \
	$(filter-out $(cxx-c-only),$(_c_flags) $(modkern_cflags)) \
	-D__KERNEL__ -std=c++20 -ffreestanding -fno-exceptions -fno-rtti -fno-threadsafe-statics \
	-g0 -Werror $(cxx-include)

quiet_cmd_cxx_o_cpp = CXX $(quiet_modtag) $@
      cmd_cxx_o_cpp = $(CXX) $(cxx_flags) -c -o $@ $<; $(OBJCOPY) -R .group $@ $(cmd_objtool)

# The module loader runs no constructors, but for those of a kernel's own instrumentation, which
# look the same.
ifndef CONFIG_CONSTRUCTORS
      cmd_no_constructors = if $(OBJDUMP) -h $@ | grep -E '\.(init_array|ctors|fini_array|dtors)'; \
	then echo >&2 "$@: error: needs a constructor or destructor to run"; rm -f $@; false; fi
endif

# A rule is a recipe of several lines; before that had a name in kbuild, one line for the shell.
ifdef cmd_and_fixdep
define rule_cxx_o_cpp
	$(call cmd_and_fixdep,cxx_o_cpp)
	$(call cmd,no_constructors)
	$(call cmd,gen_objtooldep)
endef
else
rule_cxx_o_cpp = $(echo-cmd) $(cmd_cxx_o_cpp); $(cmd_no_constructors); \
	scripts/basic/fixdep $(depfile) $@ '$(call make-cmd,cxx_o_cpp)' > $(dot-target).tmp; \
	rm -f $(depfile); mv -f $(dot-target).tmp $(dot-target).cmd
endif

$(obj)/%.o: $(obj)/%.cpp FORCE
	$(call if_changed_rule,cxx_o_cpp)
