#include "tarnd/core/tarn_main.h"

int main(int argc, char **argv)
{
    return appmain(argc, argv);
}
