# A thin layer over the CMake presets; every target first installs what is missing.

JOBS ?= $(shell nproc)

WINE32 ?= build/wine32

.PHONY: all packages package test-package test-help windows host linux handheld test-handheld test-handheld-program handheld-arm arm demo test test-kills tsan bench fuzz coverage format check-format lint clean

all: windows

packages:
	@tools/install-packages

windows: packages
	@tools/configure windows
	@cmake --build --preset windows -j $(JOBS)

host: packages
	@tools/configure host
	@cmake --build --preset host -j $(JOBS)

# The native command, in build/linux/bin/quilla.
linux: packages
	@tools/configure linux
	@cmake --build --preset linux -j $(JOBS) --target quilla

# What users download, in build/packages: for Windows a zip and an installer, for Debian the native command.
package: packages
	@tools/install-packages tools/packages-package.txt
	@JOBS=$(JOBS) tools/make-packages

# The packages installed, used and removed, and built once more elsewhere: the same bytes.
test-package: package
	@cmake --build --preset windows -j $(JOBS) --target desk
	@JOBS=$(JOBS) tools/test-packages

# The help page in a browser, on a wide and on a narrow screen; pictures in build/help.
test-help:
	@tools/install-packages tools/packages-help.txt
	@tests/help/help_test.py

# Images for Windows CE on x86, and the check that the system has all that they import.
handheld: packages
	@tools/configure handheld
	@cmake --build --preset handheld -j $(JOBS)

# The native command, and the program under Wine, killed in the middle of two hundred changes of a password each.
test-kills: windows
	@tools/configure bench
	@cmake --build --preset bench -j $(JOBS) --target quilla
	@cd tests/linux && QUILLA=$(CURDIR)/build/bench/bin/quilla QUILLA_KILLS=200 python3 files_test.py \
		Files.test_one_password_opens_whenever_the_command_is_killed
	@QUILLA_KILLS=200 python3 tests/endtoend/passwords_test.py

# The very image of the driver, run by a loader of the tests in an emulator: not every machine runs 32-bit programs of x86.
test-handheld: handheld
	@tools/install-packages tools/packages-handheld.txt
	@g++ -m32 -mstackrealign -I. -I/usr/include/x86_64-linux-gnu -std=c++20 -O2 -Wall -Wextra \
		tests/handheld/load_driver.cpp -o build/handheld/load_driver
	@tests/handheld/driver_test.py "qemu-i386 build/handheld/load_driver" build/handheld/bin/QuillaDriver.dll

# The very image of the program, run with a 32-bit Wine in a folder of its own (WINE32=folder): needs root and 1.4 GB.
test-handheld-program: handheld
	@tools/install-packages tools/packages-handheld-program.txt
	@tools/make-wine32-root $(WINE32)
	@tests/handheld/build_coredll build/handheld/bin
	@tests/handheld/program_test.py $(WINE32) build/handheld/bin

# The same for ARM, and the driver's image run in an emulator.
handheld-arm: packages
	@tools/install-packages tools/packages-arm.txt
	@tools/configure handheld-arm
	@cmake --build --preset handheld-arm -j $(JOBS)
	@arm-linux-gnueabi-g++ -static -I. -std=c++20 -O2 -Wall -Wextra tests/handheld/load_driver.cpp \
		-o build/handheld-arm/load_driver
	@tests/handheld/driver_test.py "qemu-arm build/handheld-arm/load_driver" build/handheld-arm/bin/QuillaDriver.dll \
		llvm-readobj

# The portable parts for a 32-bit ARM, tested in an emulator.
arm: packages
	@tools/install-packages tools/packages-arm.txt
	@tools/configure arm
	@cmake --build --preset arm -j $(JOBS)
	@ctest --preset arm -j $(JOBS)

demo: windows
	@[ -x build/host/bin/quilla ] || $(MAKE) linux
	@tools/demo

test: windows host handheld
	@tools/run-tests

tsan: packages
	@tools/configure tsan
	@cmake --build --preset tsan -j $(JOBS)
	@ctest --preset tsan -j $(JOBS)

bench: packages
	@tools/run-benchmarks

fuzz: packages
	@tools/run-fuzzers

coverage: packages
	@tools/measure-coverage

format: packages
	@git ls-files '*.cpp' '*.h' | xargs clang-format -i

check-format: packages
	@git ls-files '*.cpp' '*.h' | xargs clang-format --dry-run --Werror

lint: packages
	@tools/lint
	@tools/check-scripts

clean:
	rm -rf build
