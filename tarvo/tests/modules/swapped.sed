# Swaps two virtual functions of Framework.
/virtual OutputService& Output\(/{
  h
  d
}
/virtual FileService& Files\(/G
