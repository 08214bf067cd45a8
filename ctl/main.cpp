// ivarodectl: what the router does, for its operator and for programs.

#include "commands.h"

int main(int argc, char **argv)
{
    return ctl::dispatch(argc, argv);
}
