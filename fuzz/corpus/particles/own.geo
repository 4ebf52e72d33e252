.geo
PGEOMETRY V5
NPoints 2 NPrims 0
NPointGroups 0 NPrimGroups 0
NPointAttrib 6 NVertexAttrib 0 NPrimAttrib 0 NAttrib 0
PointAttrib
v 3 vector 0 0 0
id 1 int 0
flags 1 int 0
m 1 float 0
a:b 1 float 0
Cd 3 vector 0 0 0
1 0.1 -3e-10 1 (0 1 2	-7	65535	0.1	2	0.1 0.2 0.3)
-1e+30 0 4 1 (5 5 5	21474	0	1e+30	0.25	1 1 1)
beginExtra
endExtra
