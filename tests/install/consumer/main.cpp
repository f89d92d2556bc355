// A program of somebody else: it knows the installed headers and the shared library, nothing more.
#include "NvxQtCommon/contract/base/ByteStream.h"

#include <QCoreApplication>
#include <cstdio>

int main(int argc, char** argv)
{
    QCoreApplication application(argc, argv);
    ByteStream stream;
    stream.putU16(0x2A45);
    if (stream.size() != 2 || stream.bytes()[0] != 0x2A)
        return 1;
    std::puts("consumer: fine");
    return 0;
}
