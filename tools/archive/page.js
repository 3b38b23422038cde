'use strict';
const body = document.querySelector('tbody'), rows = [...body.rows];
const show = document.getElementById('show'), find = document.getElementById('find');

function choose() {
  const text = find.value.toLowerCase();
  let count = 0;
  for (const row of rows) {
    row.hidden = !(show.value === 'all' || row.dataset.is === show.value ||
                   show.value === 'bad' && row.dataset.is !== 'clean') ||
                 !(row.dataset.path + row.textContent).toLowerCase().includes(text);
    count += !row.hidden;
  }
  document.getElementById('count').value = `${count} of ${rows.length} shown`;
}

function sort(head) {
  const column = head.cellIndex, isNumber = head.classList.contains('n') || column === 0;
  const isUp = head.ariaSort ? head.ariaSort === 'descending' : !isNumber || column === 0;
  const key = row => isNumber ? Number(row.cells[column].dataset.key || 0) : row.cells[column].textContent;
  const compare = (a, b) => isNumber ? a - b : a.localeCompare(b);
  for (const other of head.parentNode.cells) other.removeAttribute('aria-sort');
  head.setAttribute('aria-sort', isUp ? 'ascending' : 'descending');
  body.append(...rows.sort((a, b) => compare(key(a), key(b)) * (isUp ? 1 : -1)));
}

for (const button of document.querySelectorAll('thead button')) {
  button.disabled = false;
  button.onclick = () => sort(button.closest('th'));
}
document.forms[0].hidden = false;
document.forms[0].onsubmit = () => false;
show.onchange = find.oninput = choose;
choose();
