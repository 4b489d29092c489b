# Builds the examples with the installed library: make, make sysmon; PKG_CONFIG_PATH=... make where
# pkg-config does not find it by itself.
KELVIK_FLAGS = $(shell pkg-config --cflags kelvik)
KELVIK_LIBS = $(shell pkg-config --libs kelvik) -pthread
CFLAGS ?= -O2 -Wall
CXXFLAGS ?= -O2 -Wall

PROGRAMS = $(basename $(wildcard *.c *.cpp))

all: $(PROGRAMS)

%: %.c
	$(CC) -std=c99 $(CFLAGS) $(KELVIK_FLAGS) $(LDFLAGS) -o $@ $< $(KELVIK_LIBS)

%: %.cpp
	$(CXX) -std=c++17 $(CXXFLAGS) $(KELVIK_FLAGS) $(LDFLAGS) -o $@ $< $(KELVIK_LIBS)

clean:
	rm -f $(PROGRAMS)

.PHONY: all clean
