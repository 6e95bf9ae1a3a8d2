# Demo: error codes and back traces
show error 0x0D00
show error 0x2000
show error 0x3900
show error --trace 0x0700
