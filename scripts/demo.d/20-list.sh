# Demo: string lists (sorting, and set operations on lists of names)
show list sort "carol,alice,bob"
show list casesort "Zoe,adam,Émile,eve"
show list and "alice,bob,carol" "bob,carol,dave"
show list or "alice,bob" "bob,carol"
show list sub "alice,bob,carol" "bob"
