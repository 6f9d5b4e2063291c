<?xml version="1.0" encoding="UTF-8"?>
<ColorCorrection id="shot_010" xmlns="urn:ASC:CDL:v1.01">
  <SOPNode>
    <Slope>1.1 1.0 0.9</Slope>
    <Offset>0.01 0 -0.01</Offset>
    <Power>1.0 1.2 0.8</Power>
  </SOPNode>
</ColorCorrection>
